#include "ui/PanelWindow.h"

#include "PanelTestSupport.h"
#include "ui/MenuBarView.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

namespace {

struct PanelWindowScene {
    PanelFixture fixture;
    int made = 0;
    PanelWindow panel{[this] {
        ++made;
        return new MenuBarView(*fixture.presenter);
    }};

    void releasePending() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }
};

TEST(PanelWindow, HoldsItsViewAndRunsItsTimersOnlyWhileShown) {
    PanelWindowScene scene;
    EXPECT_EQ(scene.made, 0);
    EXPECT_EQ(scene.panel.content(), nullptr);
    EXPECT_FALSE(scene.fixture.lastSyncTicker().isActive());

    scene.panel.present({});
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&scene.panel));
    const QPointer<QWidget> first = scene.panel.content();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isVisible());
    EXPECT_TRUE(scene.fixture.lastSyncTicker().isActive());

    scene.panel.hide();
    EXPECT_FALSE(scene.fixture.lastSyncTicker().isActive());
    scene.releasePending();
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(scene.panel.content(), nullptr);

    scene.panel.present({});
    EXPECT_EQ(scene.made, 2);
    ASSERT_NE(scene.panel.content(), nullptr);
    EXPECT_TRUE(scene.panel.content()->isVisible());
}

TEST(PanelWindow, KeepsItsViewShownWhenTheTrayComesOrGoesWhileOpen) {
    PanelWindowScene scene;
    scene.panel.present({});
    scene.panel.setTrayMode(true);
    scene.releasePending();
    ASSERT_NE(scene.panel.content(), nullptr);
    EXPECT_TRUE(scene.panel.isVisible());
    EXPECT_TRUE(scene.panel.content()->isVisible());
    EXPECT_TRUE(scene.fixture.lastSyncTicker().isActive());
}

} // namespace

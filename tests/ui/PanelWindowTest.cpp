#include "ui/PanelWindow.h"

#include "PanelTestSupport.h"
#include "support/TableRows.h"
#include "ui/MenuBarView.h"
#include "ui/MenuRowButton.h"

#include <QCoreApplication>
#include <QCursor>
#include <QPointer>
#include <QScreen>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

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
    ASSERT_NE(scene.panel.content(), nullptr);
    EXPECT_TRUE(scene.panel.content()->isVisible());
    // The tray coming while the window is open leaves a view shown.
    scene.panel.setTrayMode(true);
    scene.releasePending();
    const QPointer<QWidget> shown = scene.panel.content();
    ASSERT_NE(shown, nullptr);
    EXPECT_TRUE(scene.panel.isVisible() && shown->isVisible());
    EXPECT_TRUE(scene.fixture.lastSyncTicker().isActive());

    scene.panel.hide();
    EXPECT_FALSE(scene.fixture.lastSyncTicker().isActive());
    scene.releasePending();
    EXPECT_EQ(shown, nullptr);
    EXPECT_EQ(scene.panel.content(), nullptr);

    scene.panel.present({});
    EXPECT_EQ(scene.made, 3);
    ASSERT_NE(scene.panel.content(), nullptr);
    EXPECT_TRUE(scene.panel.content()->isVisible());
}

// Where the tray panel opens on the 800×600 offscreen screen: beside the icon, else the position
// the host reported, else the cursor; and where it is after signing in made it grow.
struct PlacedRow {
    const char* name;
    QRect icon;
    QPoint host;
    bool grows;
    QPoint besideOf;
};

class PanelPlaced : public ::testing::TestWithParam<PlacedRow> {};

TEST_P(PanelPlaced, opensBesideItsAnchorWithEveryRowInsideTheScreen) {
    PanelWindowScene scene;
    scene.panel.setTrayMode(true);
    QCursor::setPos(20, 300);
    GetParam().icon.isEmpty() ? scene.panel.toggleAt(GetParam().host)
                              : scene.panel.toggle(GetParam().icon);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&scene.panel));
    const int openedHeight = scene.panel.height();
    if (GetParam().grows) {
        scene.fixture.beginSignInWithCode();
        AsyncTest::spin(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(scene.panel.height() > openedHeight, GetParam().grows);
    const QRect panel = scene.panel.geometry();
    EXPECT_FALSE(panel.contains(GetParam().besideOf));
    EXPECT_TRUE(panel.adjusted(-6, -6, 6, 6).contains(GetParam().besideOf));
    for (const MenuRowButton* row : scene.panel.content()->findChildren<MenuRowButton*>()) {
        const QRect drawn(row->mapToGlobal(QPoint(0, 0)), row->size());
        EXPECT_TRUE(!row->isVisible() || scene.panel.screen()->availableGeometry().contains(drawn));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Anchors, PanelPlaced,
    ::testing::Values(PlacedRow{"besideTheIcon", {770, 4, 16, 16}, {}, false, {778, 19}},
                      PlacedRow{"atTheHostsPosition", {}, {400, 596}, false, {400, 596}},
                      PlacedRow{"atTheCursorWhenTheHostKnowsNone", {}, {0, 0}, false, {20, 300}},
                      PlacedRow{"againAfterGrowing", {}, {400, 596}, true, {400, 596}}),
    rowName);

} // namespace

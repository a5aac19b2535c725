#include "ui/SettingsWindow.h"

#include "PanelTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {

struct SettingsScene : PanelFixture {
    QLineEdit* field(const char* name) { return window->findChild<QLineEdit*>(name); }
    QLabel* feedback() { return window->findChild<QLabel*>("feedback"); }
    QColor feedbackColour() { return feedback()->palette().color(QPalette::WindowText); }
    QToolButton* advanced() { return window->findChild<QToolButton*>("advancedToggle"); }
    void click(const QString& text) { shown<QPushButton>(*window, text)->click(); }
    void showAndSettle() {
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        AsyncTest::spin(std::chrono::milliseconds(20));
    }

    SettingsPresenter settings{*state};
    std::unique_ptr<SettingsWindow> window = std::make_unique<SettingsWindow>(settings);
};

TEST(SettingsWindow, SavesTheFieldsAsTypedInGreenAndKeepsThemAfterAFailureInRed) {
    SettingsScene scene;
    scene.showAndSettle();
    EXPECT_FALSE(scene.field("serverURL")->isVisible()) << "advanced settings start collapsed";
    EXPECT_EQ(scene.field("apiKey")->echoMode(), QLineEdit::Password);
    EXPECT_FALSE(scene.feedback()->isVisible());

    scene.advanced()->setChecked(true);
    scene.field("serverURL")->setText("https://self-hosted.example/api/");
    QTest::keyClicks(scene.field("apiKey"), " vk_manual ");
    scene.window->findChild<QCheckBox*>()->setChecked(false);
    QTest::keyClick(scene.field("apiKey"), Qt::Key_Return);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !scene.feedback()->text().isEmpty(); }));
    EXPECT_EQ(scene.harness.credentials.stored, "vk_manual");
    EXPECT_EQ(scene.harness.defaults.values.value("serverURL"), "https://self-hosted.example/api");
    EXPECT_EQ(scene.harness.loginItems.calls, QList<bool>{false});
    EXPECT_TRUE(scene.field("apiKey")->text().isEmpty());
    EXPECT_EQ(scene.feedback()->text(), "Saved. The tracker is using the updated settings.");
    EXPECT_TRUE(scene.feedback()->isVisible());
    EXPECT_EQ(scene.feedbackColour().green(), scene.feedbackColour().value());
    // The key field is now titled for a stored credential.
    EXPECT_EQ(scene.field("apiKey")->accessibleName(), "Replace API key");
    EXPECT_TRUE(scene.window->isVisible()) << "saving does not close the window";

    scene.field("serverURL")->setText("http://plain.example");
    scene.field("apiKey")->setText("vk_typed");
    scene.click("Save Changes");
    EXPECT_EQ(scene.feedback()->text(), "Enter a valid HTTPS Vantrel API URL.");
    EXPECT_EQ(scene.feedbackColour().red(), scene.feedbackColour().value());
    EXPECT_EQ(scene.field("serverURL")->text(), "http://plain.example");
    EXPECT_EQ(scene.field("apiKey")->text(), "vk_typed");
    EXPECT_EQ(scene.harness.credentials.stored, "vk_manual");

    scene.click("Privacy");
    scene.click("Support");
    ASSERT_EQ(scene.harness.workspace.opened.size(), 2);
    EXPECT_EQ(scene.harness.workspace.opened[0].path(), "/privacy/");
    EXPECT_EQ(scene.harness.workspace.opened[1].path(), "/");
}

// Restoring the window from the taskbar keeps what was typed; opening it again, or a window made
// afresh, reloads the URL from the application. The typed key and the open section survive all.
TEST(SettingsWindow, OpensWithoutAFocusedFieldAndReloadsTheURLOnlyWhenOpenedAgain) {
    SettingsScene scene;
    scene.signIn();
    scene.advanced()->setChecked(true);
    scene.field("serverURL")->setFocus(); // where a remembered focus would put the cursor
    scene.showAndSettle();
    EXPECT_EQ(qobject_cast<QLineEdit*>(QApplication::focusWidget()), nullptr);
    scene.field("serverURL")->setText("https://unsaved.example");
    scene.field("apiKey")->setText("vk_typed");
    scene.window->showMinimized();
    scene.window->showNormal();
    scene.showAndSettle();
    EXPECT_EQ(scene.field("serverURL")->text(), "https://unsaved.example");

    QTest::keyClick(scene.window.get(), Qt::Key_Escape);
    scene.showAndSettle();
    EXPECT_EQ(scene.field("serverURL")->text(), scene.state->serverURL());
    EXPECT_EQ(scene.field("apiKey")->text(), "vk_typed");

    scene.field("serverURL")->setText("https://unsaved.example");
    scene.window.reset();
    scene.window = std::make_unique<SettingsWindow>(scene.settings);
    scene.showAndSettle();
    EXPECT_TRUE(scene.advanced()->isChecked());
    EXPECT_TRUE(scene.field("apiKey")->isVisible());
    EXPECT_EQ(scene.field("apiKey")->text(), "vk_typed");
    EXPECT_EQ(scene.field("serverURL")->text(), scene.state->serverURL());
}

} // namespace

#include "ui/SettingsWindow.h"

#include "PanelTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {

struct SettingsScene {
    explicit SettingsScene(bool signedIn) {
        if (signedIn) {
            harness.credentials.stored = "vk_live_1";
            AsyncTest::run(state->start());
        }
    }

    QLineEdit* field(const char* name) { return window.findChild<QLineEdit*>(name); }
    QPushButton* button(const QString& text) {
        for (auto* candidate : window.findChildren<QPushButton*>()) {
            if (candidate->text() == text) {
                return candidate;
            }
        }
        return nullptr;
    }
    QLabel* feedback() { return window.findChild<QLabel*>("feedback"); }
    QColor feedbackColour() { return feedback()->palette().color(QPalette::WindowText); }
    void expandAdvanced() { window.findChild<QToolButton*>("advancedToggle")->setChecked(true); }
    void showAndSettle() {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        AsyncTest::spin(std::chrono::milliseconds(20));
    }

    AppHarness harness;
    std::unique_ptr<AppState> state = harness.make(false);
    SettingsPresenter presenter{*state};
    SettingsWindow window{presenter};
};

TEST(SettingsWindow, ReturnSavesTheFieldsAsTypedThenClearsTheKeyInGreen) {
    SettingsScene scene(false);
    scene.showAndSettle();
    EXPECT_EQ(scene.window.size(), QSize(560, 390));
    EXPECT_FALSE(scene.field("serverURL")->isVisible()) << "advanced settings start collapsed";
    EXPECT_EQ(scene.field("apiKey")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(scene.field("apiKey")->accessibleName(), "API key");
    EXPECT_FALSE(scene.feedback()->isVisible());

    scene.expandAdvanced();
    scene.field("serverURL")->setText("https://self-hosted.example/api/");
    QTest::keyClicks(scene.field("apiKey"), " vk_manual ");
    scene.window.findChild<QCheckBox*>()->setChecked(false);
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
    EXPECT_TRUE(scene.window.isVisible()) << "saving does not close the window";
}

TEST(SettingsWindow, AFailedSaveKeepsEveryFieldAndShowsTheErrorInRed) {
    SettingsScene scene(true);
    scene.showAndSettle();
    scene.expandAdvanced();
    scene.field("serverURL")->setText("http://plain.example");
    scene.field("apiKey")->setText("vk_typed");
    scene.button("Save Changes")->click();

    EXPECT_EQ(scene.feedback()->text(), "Enter a valid HTTPS Vantrel API URL.");
    EXPECT_EQ(scene.feedbackColour().red(), scene.feedbackColour().value());
    EXPECT_EQ(scene.field("serverURL")->text(), "http://plain.example");
    EXPECT_EQ(scene.field("apiKey")->text(), "vk_typed");
    EXPECT_EQ(scene.harness.credentials.stored, "vk_live_1");
}

// Opening the window again reloads the URL from the application; restoring it from the taskbar
// keeps what was typed. The typed key survives both.
using Return = std::tuple<const char*, std::function<void(SettingsWindow&)>, bool>;
class SettingsReturn : public ::testing::TestWithParam<Return> {};

TEST_P(SettingsReturn, opensWithoutAFocusedFieldAndReloadsOnlyWhenOpenedAgain) {
    SettingsScene scene(true);
    scene.expandAdvanced();
    scene.field("serverURL")->setFocus(); // where a remembered focus would put the cursor
    scene.showAndSettle();
    EXPECT_EQ(qobject_cast<QLineEdit*>(QApplication::focusWidget()), nullptr);

    scene.field("serverURL")->setText("https://unsaved.example");
    scene.field("apiKey")->setText("vk_typed");
    const auto& [name, leaveAndReturn, keepsTypedURL] = GetParam();
    leaveAndReturn(scene.window);
    scene.showAndSettle();
    EXPECT_EQ(scene.field("serverURL")->text(),
              keepsTypedURL ? "https://unsaved.example" : scene.state->serverURL());
    EXPECT_EQ(scene.field("apiKey")->text(), "vk_typed");
}

INSTANTIATE_TEST_SUITE_P(
    Ways, SettingsReturn,
    ::testing::Values(Return(
                          "closedAndOpenedAgain",
                          [](SettingsWindow& w) { QTest::keyClick(&w, Qt::Key_Escape); }, false),
                      Return(
                          "minimisedAndRestored",
                          [](SettingsWindow& w) {
                              w.showMinimized();
                              w.showNormal();
                          },
                          true)),
    [](const auto& row) { return std::string(std::get<0>(row.param)); });

TEST(SettingsWindow, AWindowMadeAfreshTakesOverTheTypedKeyAndTheOpenSection) {
    AppHarness harness;
    std::unique_ptr<AppState> state = harness.make(false);
    SettingsPresenter presenter(*state);
    {
        SettingsWindow first(presenter);
        first.findChild<QToolButton*>("advancedToggle")->setChecked(true);
        first.findChild<QLineEdit*>("serverURL")->setText("https://unsaved.example");
        first.findChild<QLineEdit*>("apiKey")->setText("vk_typed");
    }
    SettingsWindow second(presenter);
    second.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&second));

    EXPECT_TRUE(second.findChild<QToolButton*>("advancedToggle")->isChecked());
    EXPECT_TRUE(second.findChild<QLineEdit*>("apiKey")->isVisible());
    EXPECT_EQ(second.findChild<QLineEdit*>("apiKey")->text(), "vk_typed");
    EXPECT_EQ(second.findChild<QLineEdit*>("serverURL")->text(), state->serverURL());
}

// The Connection section, drawn, in each state: what it says, the sign-in it offers and the key
// field's title. The window is made first, so each change must reach it.
struct ConditionRow {
    const char* name;
    std::function<void(AppHarness&, AppState&)> arrange;
    QStringList connection;
};

class SettingsConditions : public ::testing::TestWithParam<ConditionRow> {};

TEST_P(SettingsConditions, drawTheDescriptionSignInAndKeyTitleForTheState) {
    SettingsScene scene(false);
    scene.expandAdvanced();
    scene.showAndSettle();
    GetParam().arrange(scene.harness, *scene.state);
    EXPECT_EQ(drawnTexts(*scene.window.findChild<QGroupBox*>()), GetParam().connection);
    // A sign-in begun here fails on its own once the status read returns (no device identity).
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return !scene.state->isAuthorizingDevice(); }));
}

const QString signedOutText =
    "Sign in through the browser to connect this Mac without copying an API key.";
const QString authorizedText = "This Mac is authorized. Its credential is stored only in Keychain.";
const QString manualCaption = "Manual keys remain available for self-hosted and Waka-compatible "
                              "setups. Saving restarts the local tracker safely.";

void signIn(AppHarness& harness, AppState& state) {
    harness.credentials.stored = "vk_live_1";
    AsyncTest::run(state.start());
}

INSTANTIATE_TEST_SUITE_P(
    States, SettingsConditions,
    ::testing::Values(
        ConditionRow{"signedOut",
                     [](AppHarness&, AppState&) {},
                     {signedOutText, "Sign In in Browser", "Advanced connection settings",
                      "API server URL", "API key", manualCaption}},
        ConditionRow{"signingIn",
                     [](AppHarness& harness, AppState& state) {
                         TrackerStatus withoutIdentity = sampleTrackerStatus();
                         withoutIdentity.deviceId = "unknown";
                         harness.supervisor.statusOnRefresh = withoutIdentity;
                         state.beginDeviceAuthorization();
                     },
                     {signedOutText, "[Signing In\u2026]", "Advanced connection settings",
                      "API server URL", "API key", manualCaption}},
        ConditionRow{"signedIn",
                     signIn,
                     {authorizedText, "Advanced connection settings", "API server URL",
                      "Replace API key", manualCaption}},
        ConditionRow{"keyRejected",
                     [](AppHarness& harness, AppState& state) {
                         signIn(harness, state);
                         TrackerStatus status = sampleTrackerStatus();
                         status.lastUploadErrorKind = "unauthorized";
                         harness.supervisor.setTrackerStatus(status);
                     },
                     {authorizedText, "Sign In in Browser", "Advanced connection settings",
                      "API server URL", "Replace API key", manualCaption}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(SettingsWindow, PrivacyAndSupportOpenTheirPages) {
    SettingsScene scene(false);
    scene.button("Privacy")->click();
    scene.button("Support")->click();
    ASSERT_EQ(scene.harness.workspace.opened.size(), 2);
    EXPECT_EQ(scene.harness.workspace.opened[0].path(), "/privacy/");
    EXPECT_EQ(scene.harness.workspace.opened[1].path(), "/");
}

} // namespace

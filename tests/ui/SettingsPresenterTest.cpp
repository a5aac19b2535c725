#include "ui/SettingsPresenter.h"

#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <QSignalSpy>

#include <functional>
#include <gtest/gtest.h>

namespace {

const QString signedOutText =
    "Sign in through the browser to connect this Mac without copying an API key.";
const QString authorizedText = "This Mac is authorized. Its credential is stored only in Keychain.";

struct ConditionCase {
    const char* name;
    std::function<void(AppHarness&, AppState&)> arrange;
    QString description;
    bool signInVisible;
    QString signInTitle;
    bool signInEnabled;
    QString keyTitle;
};

class SettingsPresenterConditions : public testing::TestWithParam<ConditionCase> {};

TEST_P(SettingsPresenterConditions, ShowTheSignInOfferAndKeyTitleForTheState) {
    const ConditionCase& row = GetParam();
    AppHarness harness;
    auto state = harness.make(false);
    SettingsPresenter presenter(*state);
    QSignalSpy changes(&presenter, &SettingsPresenter::stateChanged);
    row.arrange(harness, *state);

    EXPECT_EQ(presenter.description(), row.description);
    EXPECT_EQ(presenter.isSignInButtonVisible(), row.signInVisible);
    EXPECT_EQ(presenter.signInButtonTitle(), row.signInTitle);
    EXPECT_EQ(presenter.isSignInButtonEnabled(), row.signInEnabled);
    EXPECT_EQ(presenter.apiKeyFieldTitle(), row.keyTitle);
    // The window re-renders on this signal; a state that changed must announce it.
    EXPECT_EQ(changes.isEmpty(), std::string(row.name) == "signedOut");

    // A sign-in begun here fails on its own once the status read returns (no device identity).
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return !state->isAuthorizingDevice(); }));
}

void beginSignIn(AppHarness& harness, AppState& state) {
    TrackerStatus withoutIdentity = sampleTrackerStatus();
    withoutIdentity.deviceId = "unknown";
    harness.supervisor.statusOnRefresh = withoutIdentity;
    state.beginDeviceAuthorization();
}

void signIn(AppHarness& harness, AppState& state) {
    harness.credentials.stored = "vk_live_1";
    AsyncTest::run(state.start());
}

INSTANTIATE_TEST_SUITE_P(
    States, SettingsPresenterConditions,
    testing::Values(ConditionCase{"signedOut", [](AppHarness&, AppState&) {}, signedOutText, true,
                                  "Sign In in Browser", true, "API key"},
                    ConditionCase{"signingIn", beginSignIn, signedOutText, true, "Signing In\u2026",
                                  false, "API key"},
                    ConditionCase{"signedIn", signIn, authorizedText, false, "Sign In in Browser",
                                  true, "Replace API key"},
                    ConditionCase{"keyRejected",
                                  [](AppHarness& h, AppState& s) {
                                      signIn(h, s);
                                      TrackerStatus status = sampleTrackerStatus();
                                      status.lastUploadErrorKind = "unauthorized";
                                      h.supervisor.setTrackerStatus(status);
                                  },
                                  authorizedText, true, "Sign In in Browser", true,
                                  "Replace API key"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(SettingsPresenter, OpensThePrivacyAndSupportPages) {
    AppHarness harness;
    auto state = harness.make(false);
    SettingsPresenter presenter(*state);
    presenter.openPrivacy();
    presenter.openSupport();
    ASSERT_EQ(harness.workspace.opened.size(), 2);
    EXPECT_EQ(harness.workspace.opened[0].path(), "/privacy/");
    EXPECT_EQ(harness.workspace.opened[1].path(), "/");
}

} // namespace

#include "ui/TrayMenuPresenter.h"

#include "PanelTestSupport.h"
#include "core/PlatformError.h"
#include "ui/TrayMenu.h"

#include <gtest/gtest.h>

namespace {

// The menu as the tray shows it: disabled lines in brackets, separators as "-".
QStringList shown(const QMenu& menu) {
    QStringList result;
    for (const QAction* action : menu.actions()) {
        result.append(action->isSeparator() ? QString("-")
                      : action->isEnabled() ? action->text()
                                            : "[" + action->text() + "]");
    }
    return result;
}

struct MenuFixture : PanelFixture {
    FakeTicker* menuTicker = nullptr;
    TrayMenuPresenter menu{*presenter, [this] {
                               auto ticker = std::make_unique<FakeTicker>();
                               menuTicker = ticker.get();
                               return ticker;
                           }};
    TrayMenu view{menu};
};

struct MenuRow {
    const char* name;
    std::function<void(PanelFixture&)> arrange;
    QStringList entries;
};

class TrayMenuState : public ::testing::TestWithParam<MenuRow> {};

TEST_P(TrayMenuState, carriesTheStateAndEveryActionOfThePanel) {
    MenuFixture fixture;
    GetParam().arrange(fixture);
    EXPECT_EQ(shown(fixture.view), GetParam().entries);
}

const QStringList actions{"-", "Settings…", "Diagnostics…", "Sign Out", "-", "Quit Vantrel"};

INSTANTIATE_TEST_SUITE_P(
    States, TrayMenuState,
    ::testing::Values(
        MenuRow{"signedOut",
                [](PanelFixture&) {},
                {"[Sign in required]", "-", "Sign In", "-", "Settings…", "Diagnostics…", "-",
                 "Quit Vantrel"}},
        MenuRow{
            "keyRejected",
            [](PanelFixture& f) {
                f.signIn();
                f.harness.supervisor.setHelperRunning(true);
                f.reportStatus([](TrackerStatus& s) { s.lastUploadErrorKind = "unauthorized"; });
            },
            QStringList{"[Action required]", "[The API key was rejected.]", "-", "Sign In Again"} +
                actions},
        MenuRow{"crashLocked",
                [](PanelFixture& f) {
                    f.signIn();
                    f.harness.supervisor.setCrashLocked(true);
                },
                QStringList{"[Action required]", "[Tracker stopped after repeated crashes.]", "-",
                            "Open Dashboard", "Retry Tracker"} +
                    actions},
        MenuRow{"signingInWithACode", [](PanelFixture& f) { f.beginSignInWithCode(); },
                QStringList{"[Connecting]", "[Confirmation code: WDJB-MJHT]", "[Expires in 15:00]",
                            "-", "Open Approval Page", "Cancel Sign In"} +
                    actions},
        MenuRow{"signInFailed",
                [](PanelFixture& f) {
                    f.harness.authorizer.startOutcomes.push_back(
                        std::make_exception_ptr(PlatformError("Permission denied")));
                    f.state->beginDeviceAuthorization();
                    AsyncTest::waitUntil([&f] { return f.state->presentedError().has_value(); });
                },
                {"[Sign in required]", "[Permission denied]", "-", "Sign In", "-", "Settings…",
                 "Diagnostics…", "-", "Quit Vantrel"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(TrayMenu, keepsTheCountdownCurrentAndPerformsOnlyWhatItOffers) {
    MenuFixture fixture;
    fixture.menu.trigger("open-dashboard"); // not offered while signed out
    EXPECT_TRUE(fixture.harness.workspace.opened.isEmpty());
    EXPECT_FALSE(fixture.menuTicker->active);

    fixture.beginSignInWithCode();
    EXPECT_TRUE(fixture.menuTicker->active);
    int changes = 0;
    QObject::connect(&fixture.menu, &TrayMenuPresenter::changed, [&changes] { ++changes; });
    fixture.now = fixture.now.addSecs(2);
    fixture.menuTicker->fire();
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(shown(fixture.view).contains("[Expires in 14:58]"));

    fixture.menu.trigger("cancel-sign-in");
    AsyncTest::waitUntil([&] { return !fixture.state->deviceAuthorizationCode(); });
    EXPECT_FALSE(fixture.menuTicker->active);
    EXPECT_TRUE(shown(fixture.view).contains("Sign In"));
}

} // namespace

#include "app/AppStateError.h"
#include "app/PlatformError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "system/KeychainStoreError.h"

#include <gtest/gtest.h>

namespace {

const QString helperPath = "/opt/vantrel/libexec/vantrel/vantrel-tracker";
using Pair = std::pair<QString, QString>;

class AppStateStartup : public testing::Test {
protected:
    std::unique_ptr<AppState> startAndWait() {
        auto state = harness.make(false);
        AsyncTest::run(state->start());
        return state;
    }

    AppHarness harness;
};

TEST_F(AppStateStartup, RunsTheWholeSequenceWithAStoredKey) {
    harness.credentials.stored = "key-1";
    harness.defaults.values["serverURL"] = "  https://self.example/api/vantrel/v1/ \n";
    harness.migration.result = {.importedCredential = true, .stoppedServiceCount = 0};
    harness.supervisor.statusOnRefresh = sampleTrackerStatus();

    auto state = startAndWait();

    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(state->presentedError(), std::nullopt);
    EXPECT_EQ(state->migrationSummary(),
              "Imported the existing tracker and stopped its background service.");
    EXPECT_EQ(state->serverURL(), "https://self.example/api/vantrel/v1");
    EXPECT_EQ(harness.defaults.values["serverURL"], "https://self.example/api/vantrel/v1");
    ASSERT_EQ(harness.configFile.writes.size(), 1);
    EXPECT_EQ(harness.configFile.writes[0], Pair("api_url", "https://self.example/api/vantrel/v1"));
    ASSERT_EQ(harness.supervisor.refreshes.size(), 1);
    EXPECT_EQ(harness.supervisor.refreshes[0],
              Pair(helperPath, "/home/tester/.vantrel/config.toml"));
    EXPECT_TRUE(state->hasCredential());

    ASSERT_EQ(harness.supervisor.starts.size(), 1);
    const LaunchConfiguration& launched = harness.supervisor.starts[0];
    EXPECT_EQ(launched.executableURL, helperPath);
    EXPECT_EQ(launched.configURL, "/home/tester/.vantrel/config.toml");
    EXPECT_EQ(launched.apiKey, "key-1");
    EXPECT_EQ(launched.deviceName, "Anna’s Laptop");
    EXPECT_EQ(launched.stdoutURL, "/home/tester/.vantrel/tracker/stdout.log");
    EXPECT_EQ(launched.stderrURL, "/home/tester/.vantrel/tracker/stderr.log");
    ASSERT_EQ(harness.poller.starts.size(), 1);
    EXPECT_EQ(harness.poller.starts[0], Pair("https://self.example/api/vantrel/v1", "key-1"));

    EXPECT_EQ(harness.loginItems.calls, QList<bool>{true});
    EXPECT_EQ(harness.defaults.values["launchAtLogin"], true);
    EXPECT_EQ(harness.defaults.values["launchAtLoginInitialized"], true);
}

TEST_F(AppStateStartup, WithoutAKeyStartsNothingButStillAppliesLaunchAtLogin) {
    harness.defaults.values["launchAtLogin"] = false;
    harness.defaults.values["launchAtLoginInitialized"] = true;

    auto state = startAndWait();

    EXPECT_FALSE(state->hasCredential());
    EXPECT_TRUE(harness.supervisor.starts.isEmpty());
    EXPECT_TRUE(harness.poller.starts.isEmpty());
    EXPECT_FALSE(state->launchAtLogin());
    EXPECT_EQ(harness.loginItems.calls, QList<bool>{false});
    EXPECT_EQ(state->migrationSummary(), std::nullopt);
    EXPECT_EQ(state->health(), TrackerHealth::signInRequired());
}

TEST_F(AppStateStartup, ShowsTheMigrationSummaryWhenOnlyServicesWereStopped) {
    harness.migration.result = {.importedCredential = false, .stoppedServiceCount = 2};
    auto state = startAndWait();
    EXPECT_TRUE(state->migrationSummary().has_value());
}

TEST_F(AppStateStartup, ASecondStartDoesNothingEvenWhileTheFirstIsSuspended) {
    harness.migration.hold = true;
    auto state = harness.make(false);

    auto first = state->start();
    AsyncTest::run(state->start());
    EXPECT_EQ(harness.migration.calls, 1);
    EXPECT_TRUE(state->isStarting()) << "the first run is still waiting for the migration";

    harness.migration.release();
    AsyncTest::run(std::move(first));
    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(harness.loginItems.calls.size(), 1);
}

struct StartupFailure {
    const char* name;
    std::function<void(AppHarness&)> arrange;
    QString message;
};

void PrintTo(const StartupFailure& row, std::ostream* out) {
    *out << row.name;
}

class AppStateStartupFailure : public testing::TestWithParam<StartupFailure> {};

TEST_P(AppStateStartupFailure, EndsStartUpWithOneMessageAndStartsNothing) {
    AppHarness harness;
    harness.credentials.stored = "key-1";
    GetParam().arrange(harness);
    auto state = harness.make(false);

    AsyncTest::run(state->start());

    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(state->presentedError(), GetParam().message);
    EXPECT_TRUE(harness.supervisor.starts.isEmpty());
    EXPECT_TRUE(harness.poller.starts.isEmpty());
    EXPECT_TRUE(harness.loginItems.calls.isEmpty());

    // Recovery goes through the user's actions, never through a second start-up.
    AsyncTest::run(state->start());
    EXPECT_EQ(harness.migration.calls, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Exits, AppStateStartupFailure,
    testing::Values(
        StartupFailure{"migrationFails",
                       [](AppHarness& h) {
                           h.migration.failure =
                               std::make_exception_ptr(PlatformError("Permission denied"));
                       },
                       "Permission denied"},
        StartupFailure{"plainHTTPServer",
                       [](AppHarness& h) { h.defaults.values["serverURL"] = "http://x.example"; },
                       "Enter a valid HTTPS Vantrel API URL."},
        StartupFailure{"serverWithoutHost",
                       [](AppHarness& h) { h.defaults.values["serverURL"] = "https:/api"; },
                       "Enter a valid HTTPS Vantrel API URL."},
        StartupFailure{"configFileUnwritable",
                       [](AppHarness& h) { h.configFile.failure = "Read-only file system"; },
                       "Read-only file system"},
        StartupFailure{"credentialStoreLocked", [](AppHarness& h) { h.credentials.failLoad = 2; },
                       "Keychain operation failed with status 2."}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(AppStateStartup, AnInvalidStoredURLChangesNothingElse) {
    harness.defaults.values["serverURL"] = "http://x.example/";
    auto state = startAndWait();
    EXPECT_EQ(state->serverURL(), "http://x.example/");
    EXPECT_EQ(harness.defaults.values["serverURL"], "http://x.example/");
    EXPECT_TRUE(harness.configFile.writes.isEmpty());
    EXPECT_TRUE(harness.supervisor.refreshes.isEmpty());
}

TEST_F(AppStateStartup, ALaunchAtLoginFailureStillCompletesStartUp) {
    harness.credentials.stored = "key-1";
    harness.loginItems.failure = "autostart directory is read-only";

    auto state = startAndWait();

    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(state->presentedError(), "Tracking started, but launch at login could not be "
                                       "updated: autostart directory is read-only");
    EXPECT_EQ(harness.supervisor.starts.size(), 1);
    EXPECT_TRUE(state->launchAtLogin()) << "the preference keeps its value";
    EXPECT_FALSE(harness.defaults.values.contains("launchAtLoginInitialized"));
}

TEST_F(AppStateStartup, StartsOnTheNextTurnWhenAutomaticAndNeverOtherwise) {
    auto manual = harness.make(false);
    EXPECT_FALSE(manual->isStarting());
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(harness.migration.calls, 0);

    auto automatic = harness.make(true);
    EXPECT_TRUE(automatic->isStarting());
    EXPECT_EQ(harness.migration.calls, 0) << "nothing runs inside the constructor";
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return !automatic->isStarting(); }));
    EXPECT_EQ(harness.migration.calls, 1);
}

TEST_F(AppStateStartup, SurvivesBeingDestroyedWhileSuspended) {
    harness.migration.hold = true;
    auto state = harness.make(true);
    AsyncTest::waitUntil([&] { return harness.migration.calls == 1; });
    state.reset();
    harness.migration.release();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(harness.loginItems.calls.isEmpty());
}

struct URLCase {
    const char* name;
    QString input;
    std::optional<QString> normalized;
};

void PrintTo(const URLCase& row, std::ostream* out) {
    *out << row.name;
}

class ServerURLNormalisation : public testing::TestWithParam<URLCase> {};

TEST_P(ServerURLNormalisation, AcceptsOnlyHTTPSWithAHost) {
    const URLCase& row = GetParam();
    if (row.normalized) {
        EXPECT_EQ(AppState::normalizedServerURL(row.input), *row.normalized);
    } else {
        EXPECT_THROW(AppState::normalizedServerURL(row.input), AppStateError);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, ServerURLNormalisation,
    testing::Values(URLCase{"blanksAndSlashes", " \n https://x.example/api/vantrel/v1// \t",
                            "https://x.example/api/vantrel/v1"},
                    URLCase{"leadingSlashes", "//https://x.example", "https://x.example"},
                    URLCase{"portAndPath", "https://x.example:8443/a/b",
                            "https://x.example:8443/a/b"},
                    URLCase{"plainHTTP", "http://x.example", std::nullopt},
                    URLCase{"upperCaseScheme", "HTTPS://x.example", std::nullopt},
                    URLCase{"noAuthority", "https:x.example", std::nullopt},
                    URLCase{"onlyScheme", "https://", std::nullopt},
                    URLCase{"empty", "   ", std::nullopt},
                    URLCase{"otherScheme", "ftp://x.example", std::nullopt},
                    URLCase{"spaceInHost", "https://x example.com", std::nullopt},
                    URLCase{"noScheme", "x.example/api", std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(AppStateStartup, StartTrackerWithoutAHelperShowsWhereItWasExpected) {
    harness.installation.helper.reset();
    harness.installation.expected = "/usr/libexec/vantrel/vantrel-tracker";
    auto state = harness.make(false);
    state->startTracker("key-1");
    EXPECT_EQ(state->presentedError(),
              "Tracker helper is missing at /usr/libexec/vantrel/vantrel-tracker.");
    EXPECT_TRUE(harness.supervisor.starts.isEmpty());
    EXPECT_TRUE(harness.poller.starts.isEmpty());
}

TEST_F(AppStateStartup, StartTrackerWithAnInvalidServerSkipsOnlyTheTotal) {
    harness.defaults.values["serverURL"] = "http://x.example";
    harness.host.name = std::nullopt;
    auto state = harness.make(false);
    state->startTracker("key-1");
    ASSERT_EQ(harness.supervisor.starts.size(), 1);
    EXPECT_EQ(harness.supervisor.starts[0].deviceName, "anna-laptop");
    EXPECT_TRUE(harness.poller.starts.isEmpty());
    EXPECT_EQ(state->presentedError(), std::nullopt);
}

TEST_F(AppStateStartup, PublishesTodaysTotalOnlyWhileTheStateExists) {
    auto state = harness.make(false);
    state->startTracker("key-1");
    ASSERT_TRUE(harness.poller.onUpdate);
    harness.poller.onUpdate(TodaySummary{"1 hr 5 mins", 3900});
    EXPECT_EQ(state->todaySummary(), (TodaySummary{"1 hr 5 mins", 3900}));
    auto callback = harness.poller.onUpdate;
    state.reset();
    callback(TodaySummary{"2 hrs", 7200});
}

class AppStateSignOut : public AppStateStartup {};

TEST_F(AppStateSignOut, StopsTrackingForgetsTheKeyAndRevokesIt) {
    harness.credentials.stored = "key-1";
    auto state = startAndWait();
    harness.poller.onUpdate(TodaySummary{"5 mins", 300});

    state->signOut();

    EXPECT_FALSE(state->hasCredential());
    EXPECT_EQ(harness.credentials.stored, std::nullopt);
    EXPECT_EQ(harness.supervisor.stops, QList<bool>{true});
    EXPECT_EQ(harness.poller.stops, 1);
    EXPECT_EQ(state->todaySummary(), std::nullopt);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return harness.authorizer.revokes.size() == 1; }));
    EXPECT_EQ(harness.authorizer.revokes[0], Pair(AppState::defaultServerURL, "key-1"));
}

TEST_F(AppStateSignOut, AFailingDeleteKeepsTheCredentialButStillStopsAndRevokes) {
    harness.credentials.stored = "key-1";
    harness.authorizer.revokeFailure = std::make_exception_ptr(PlatformError("offline"));
    auto state = startAndWait();
    harness.credentials.failDelete = -25308;

    state->signOut();

    EXPECT_TRUE(state->hasCredential());
    EXPECT_EQ(state->presentedError(), "Keychain operation failed with status -25308.");
    EXPECT_EQ(harness.supervisor.stops, QList<bool>{true});
    EXPECT_EQ(state->todaySummary(), std::nullopt);
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return harness.authorizer.revokes.size() == 1; }));
}

TEST_F(AppStateSignOut, SendsNoRevokeForAnUnparsableServerURL) {
    harness.credentials.stored = "key-1";
    harness.defaults.values["serverURL"] = "https://exa mple.com";
    auto state = harness.make(false);

    state->signOut();

    EXPECT_FALSE(state->hasCredential());
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(harness.authorizer.revokes.isEmpty());
}

TEST_F(AppStateSignOut, SendsNoRevokeWhenTheKeyCannotBeRead) {
    harness.credentials.stored = "key-1";
    harness.credentials.failLoad = 5;
    auto state = harness.make(false);
    state->signOut();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(harness.authorizer.revokes.isEmpty());
    EXPECT_EQ(harness.credentials.deleteCount, 1);
}

TEST_F(AppStateStartup, QuitStopsEverythingAndLeavesLaunchAtLoginAlone) {
    harness.credentials.stored = "key-1";
    auto state = startAndWait();
    const auto loginCalls = harness.loginItems.calls;

    state->quit();

    EXPECT_EQ(harness.poller.stops, 1);
    EXPECT_EQ(harness.supervisor.stops, QList<bool>{true});
    EXPECT_EQ(harness.application.events, QStringList{"terminate"});
    EXPECT_EQ(harness.loginItems.calls, loginCalls);
}

TEST_F(AppStateStartup, OpensSettingsAfterActivatingAndWebPagesOnTheOrigin) {
    auto state = harness.make(false);
    state->openSettings();
    EXPECT_EQ(harness.application.events, QStringList{"activate"});
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return harness.application.events.size() == 2; }));
    EXPECT_EQ(harness.application.events, QStringList({"activate", "settings"}));

    state->openWebPage("/dashboard");
    EXPECT_EQ(harness.workspace.opened, QList<QUrl>{QUrl("https://vantrel.app/dashboard")});
}

} // namespace

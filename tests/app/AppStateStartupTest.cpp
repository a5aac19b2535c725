#include "app/AppStateError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <gtest/gtest.h>

namespace {

const QString helperPath = "/opt/vantrel/libexec/vantrel/vantrel-tracker";
const QString configPath = "/home/tester/.vantrel/config.toml";
const QString selfHosted = "https://self.example/api/vantrel/v1";
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
    harness.defaults.values["serverURL"] = "  " + selfHosted + "/ \n";
    harness.migration.result = {.importedCredential = true, .stoppedServiceCount = 0};
    harness.supervisor.statusOnRefresh = sampleTrackerStatus();

    auto state = startAndWait();

    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(state->presentedError(), std::nullopt);
    EXPECT_EQ(state->migrationSummary(),
              "Imported the existing tracker and stopped its background service.");
    EXPECT_EQ(state->serverURL(), selfHosted);
    EXPECT_EQ(harness.defaults.values["serverURL"], selfHosted);
    EXPECT_EQ(harness.configFile.writes, QList<Pair>{Pair("api_url", selfHosted)});
    EXPECT_EQ(harness.supervisor.refreshes, QList<Pair>{Pair(helperPath, configPath)});
    EXPECT_TRUE(state->hasCredential());
    const LaunchConfiguration launched{
        .executableURL = helperPath,
        .configURL = configPath,
        .apiKey = "key-1",
        .deviceName = "Anna’s Laptop",
        .stdoutURL = "/home/tester/.vantrel/tracker/stdout.log",
        .stderrURL = "/home/tester/.vantrel/tracker/stderr.log",
    };
    EXPECT_EQ(harness.supervisor.starts, QList<LaunchConfiguration>{launched});
    EXPECT_EQ(harness.poller.starts, QList<Pair>{Pair(selfHosted, "key-1")});
    // Launch at login defaults to on the first time, and is remembered as decided.
    EXPECT_EQ(harness.loginItems.calls, QList<bool>{true});
    EXPECT_EQ(harness.defaults.values["launchAtLogin"], true);
    EXPECT_EQ(harness.defaults.values["launchAtLoginInitialized"], true);
}

TEST_F(AppStateStartup, ASecondStartDoesNothingEvenWhileTheFirstIsSuspended) {
    harness.migration.gate.hold = true;
    auto state = harness.make(false);

    auto first = state->start();
    AsyncTest::run(state->start());
    EXPECT_EQ(harness.migration.calls, 1);
    EXPECT_TRUE(state->isStarting()) << "the first run is still waiting for the migration";

    harness.migration.gate.releaseOne();
    AsyncTest::run(std::move(first));
    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(harness.loginItems.calls.size(), 1);
}

// How start-up ends with a stored key, unless the row takes it away.
struct StartupCase {
    const char* name;
    void (*arrange)(AppHarness&);
    std::optional<QString> message;
    bool tracks = false;
    QList<bool> loginItemCalls = {};
};

class AppStateStartupEnd : public testing::TestWithParam<StartupCase> {};

TEST_P(AppStateStartupEnd, EndsWithAtMostOneMessage) {
    const StartupCase& row = GetParam();
    AppHarness harness;
    harness.credentials.stored = "key-1";
    row.arrange(harness);
    auto state = harness.make(false);

    AsyncTest::run(state->start());

    EXPECT_FALSE(state->isStarting());
    EXPECT_EQ(state->presentedError(), row.message);
    EXPECT_EQ(harness.supervisor.starts.size(), row.tracks ? 1 : 0);
    EXPECT_EQ(harness.poller.starts.size(), row.tracks ? 1 : 0);
    EXPECT_EQ(harness.loginItems.calls, row.loginItemCalls);
    EXPECT_EQ(state->launchAtLogin(), row.loginItemCalls != QList<bool>{false});
    // Recovery goes through the user's actions, never through a second start-up.
    AsyncTest::run(state->start());
    EXPECT_EQ(harness.migration.calls, 1);
}

const QString httpsText = "Enter a valid HTTPS Vantrel API URL.";
constexpr auto noKeyAndNoLaunchAtLogin = [](AppHarness& h) {
    h.credentials.stored.reset();
    h.defaults.values["launchAtLogin"] = false;
    h.defaults.values["launchAtLoginInitialized"] = true;
};
constexpr auto loginFails = [](AppHarness& h) { h.loginItems.failure = "autostart is read-only"; };
constexpr auto migrationFails = [](AppHarness& h) {
    h.migration.failure = std::make_exception_ptr(PlatformError("Permission denied"));
};
constexpr auto plainHTTP = [](AppHarness& h) { h.defaults.values["serverURL"] = "http://x.org"; };
constexpr auto noHost = [](AppHarness& h) { h.defaults.values["serverURL"] = "https:/api"; };
constexpr auto configFails = [](AppHarness& h) { h.configFile.failure = "Read-only file system"; };
constexpr auto storeLocked = [](AppHarness& h) { h.credentials.failLoad = 2; };

INSTANTIATE_TEST_SUITE_P(
    Ends, AppStateStartupEnd,
    testing::Values(
        StartupCase{
            "withoutAKeyOnlyAppliesLaunchAtLogin", noKeyAndNoLaunchAtLogin, {}, false, {false}},
        StartupCase{"launchAtLoginFailureStillTracks",
                    loginFails,
                    "Tracking started, but launch at login could not be updated: autostart is "
                    "read-only",
                    true,
                    {true}},
        StartupCase{"migrationFails", migrationFails, "Permission denied"},
        StartupCase{"plainHTTPServer", plainHTTP, httpsText},
        StartupCase{"serverWithoutHost", noHost, httpsText},
        StartupCase{"configFileUnwritable", configFails, "Read-only file system"},
        StartupCase{"credentialStoreLocked", storeLocked,
                    "Keychain operation failed with status 2."}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(AppStateStartup, StartsOnTheNextTurnWhenAutomaticAndSurvivesDestructionMeanwhile) {
    auto manual = harness.make(false);
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(harness.migration.calls, 0);

    harness.migration.gate.hold = true;
    auto automatic = harness.make(true);
    EXPECT_TRUE(automatic->isStarting());
    EXPECT_EQ(harness.migration.calls, 0) << "nothing runs inside the constructor";
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return harness.migration.calls == 1; }));
    automatic.reset();
    harness.migration.gate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(harness.loginItems.calls.isEmpty());
}

struct URLCase {
    const char* name;
    QString input;
    std::optional<QString> normalized;
};

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
                    URLCase{"noAuthority", "https:x.example", std::nullopt},
                    URLCase{"empty", "   ", std::nullopt},
                    URLCase{"spaceInHost", "https://x example.com", std::nullopt},
                    URLCase{"noScheme", "x.example/api", std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

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

TEST_F(AppStateStartup, SignOutStopsTrackingForgetsTheKeyAndRevokesIt) {
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

TEST_F(AppStateStartup, SignOutWithAFailingDeleteKeepsTheCredentialButStillStopsAndRevokes) {
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

TEST_F(AppStateStartup, SignOutSendsNoRevokeForAnUnparsableServerURL) {
    harness.credentials.stored = "key-1";
    harness.defaults.values["serverURL"] = "https://exa mple.com";
    auto state = harness.make(false);

    state->signOut();

    EXPECT_FALSE(state->hasCredential());
    EXPECT_EQ(harness.credentials.stored, std::nullopt);
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(harness.authorizer.revokes.isEmpty());
}

} // namespace

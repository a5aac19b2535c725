#include "app/AppStateError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <gtest/gtest.h>

namespace {

const QString selfHosted = "https://self.example/api/vantrel/v1";
const QString unreadable = "The preferences could not be read.";
using Pair = std::pair<QString, QString>;

// Only the user's save may replace preferences that could not be read, and it also takes away
// the notice about them.
TEST(AppStateStartup, RunsTheWholeSequenceThenLetsTheUsersSaveReplaceUnreadablePreferences) {
    AppHarness h;
    h.credentials.stored = "key-1";
    h.defaults.values["serverURL"] = "  " + selfHosted + "/ \n";
    h.defaults.problem = unreadable;
    h.migration.result = {.importedCredential = false, .stoppedServiceCount = 1};
    auto state = h.make(false);
    AsyncTest::run(state->start());

    EXPECT_EQ(state->migrationSummary(),
              "Imported the existing tracker and stopped its background service.");
    EXPECT_EQ(state->serverURL(), selfHosted);
    EXPECT_EQ(h.defaults.values["serverURL"], selfHosted);
    EXPECT_EQ(h.configFile.writes, QList<Pair>{Pair("api_url", selfHosted)});
    EXPECT_EQ(h.supervisor.refreshes,
              QList<Pair>{Pair("/opt/vantrel/libexec/vantrel/vantrel-tracker",
                               "/home/tester/.vantrel/config.toml")});
    EXPECT_TRUE(state->hasCredential());
    EXPECT_EQ(h.supervisor.starts.value(0).deviceName, "Anna’s Laptop");
    // Launch at login defaults to on the first time, and is remembered as decided.
    EXPECT_EQ(h.loginItems.calls, QList<bool>{true});
    EXPECT_EQ(h.defaults.values["launchAtLogin"], true);
    EXPECT_EQ(h.defaults.values["launchAtLoginInitialized"], true);
    EXPECT_EQ(state->presentedError(), unreadable);
    EXPECT_EQ(h.defaults.commits, 0);

    AsyncTest::run(state->saveSettings(selfHosted, "", true));
    EXPECT_EQ(state->presentedError(), std::nullopt);
}

const QString noHome = "Could not create the folder /home/tester/.vantrel: Not a directory";

TEST(AppStateStartupEnd, HasAtMostOneMessageAndNeverRunsTwice) {
    const struct {
        void (*arrange)(AppHarness&);
        std::optional<QString> message;
        QList<bool> loginItemCalls = {}; // applied only after tracking started, if it does
    } rows[] = {
        {[](AppHarness& h) {
             h.credentials.stored.reset();
             h.defaults.values["launchAtLogin"] = false;
             h.defaults.values["launchAtLoginInitialized"] = true;
         },
         std::nullopt,
         {false}},
        {[](AppHarness& h) { h.loginItems.failure = "autostart is read-only"; },
         "Tracking started, but launch at login could not be updated: autostart is read-only",
         {true}},
        {[](AppHarness& h) {
             h.migration.failure = std::make_exception_ptr(PlatformError("Permission denied"));
         },
         "Permission denied"},
        {[](AppHarness& h) { h.defaults.values["serverURL"] = "http://x.org"; },
         "Enter a valid HTTPS Vantrel API URL."},
        // A later failure takes the place of the notice about unreadable preferences.
        {[](AppHarness& h) {
             h.defaults.problem = unreadable;
             h.configFile.failure = noHome;
         },
         noHome},
        {[](AppHarness& h) { h.credentials.failLoad = 2; },
         "Keychain operation failed with status 2."},
    };
    for (const auto& row : rows) {
        AppHarness harness;
        harness.credentials.stored = "key-1";
        row.arrange(harness);
        auto state = harness.make(false);

        AsyncTest::run(state->start());

        SCOPED_TRACE(row.message.value_or("no message").toStdString());
        EXPECT_FALSE(state->isStarting());
        EXPECT_EQ(state->presentedError(), row.message);
        const bool tracks = row.loginItemCalls == QList<bool>{true};
        EXPECT_EQ(harness.supervisor.starts.size(), tracks ? 1 : 0);
        EXPECT_EQ(harness.poller.starts.size(), tracks ? 1 : 0);
        EXPECT_EQ(harness.loginItems.calls, row.loginItemCalls);
        EXPECT_EQ(state->launchAtLogin(), row.loginItemCalls != QList<bool>{false});
        // Recovery goes through the user's actions, never through a second start-up.
        AsyncTest::run(state->start());
        EXPECT_EQ(harness.migration.calls, 1);
    }
}

// At login the keyring may come up after us: nothing of start-up runs before it is there, and
// the status says "Connecting" until start-up ends, whatever the tracker says.
TEST(AppStateStartup, StartsOnceOnTheNextTurnAfterTheSecretServiceAndSurvivesDestruction) {
    AppHarness h;
    h.secretService.gate.hold = true;
    h.migration.gate.hold = true;
    h.supervisor.setCrashLocked(true);
    auto state = h.make(true);
    EXPECT_TRUE(state->isStarting());
    EXPECT_TRUE(h.secretService.gate.requested.isEmpty()) << "nothing runs inside the constructor";
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return h.secretService.gate.pendingCount() == 1; }));
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(h.migration.calls, 0);

    h.secretService.gate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return h.migration.calls == 1; }));
    AsyncTest::run(state->start()); // returns at once while the first run is suspended
    EXPECT_EQ(h.migration.calls, 1);
    EXPECT_EQ(state->health(), TrackerHealth::connecting());

    state.reset();
    h.migration.gate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_TRUE(h.loginItems.calls.isEmpty());
}

// Whatever passes is kept as typed (the helper reads the same text from config.toml); anything
// that is not an HTTPS address QUrl takes strictly is refused.
TEST(ServerURL, IsTrimmedAndOtherwiseKeptAsTypedOrRefused) {
    const auto normalized = [](const QString& text) -> std::optional<QString> {
        try {
            return AppState::normalizedServerURL(text);
        } catch (const AppStateError&) {
            return std::nullopt;
        }
    };
    const QString asTyped = "https://anna:s3cret@bücher.example:8443/äpi?team=1";
    const QList<std::pair<QString, std::optional<QString>>> rows{
        {" \n https://x.example/api/vantrel/v1// \t", "https://x.example/api/vantrel/v1"},
        {"//https://x.example", "https://x.example"},
        {asTyped, asTyped},
        {"HTTPS://x.example", std::nullopt},
        {"https://x example.com", std::nullopt},
    };
    for (const auto& [input, expected] : rows) {
        EXPECT_EQ(normalized(input), expected) << input.toStdString();
    }
}

} // namespace

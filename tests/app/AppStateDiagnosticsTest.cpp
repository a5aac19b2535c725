#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TrackerStatus statusWith(std::optional<QString> errorKind, std::optional<QString> lastUpload) {
    TrackerStatus status = sampleTrackerStatus();
    status.lastUploadErrorKind = std::move(errorKind);
    status.lastSuccessfulUploadAt = std::move(lastUpload);
    return status;
}

struct HealthCase {
    const char* name;
    bool hasCredential;
    bool helperRunning;
    bool crashLocked;
    std::optional<TrackerStatus> status;
    TrackerHealth expected;
};

void PrintTo(const HealthCase& row, std::ostream* out) {
    *out << row.name;
}

class TrackerHealthClassification : public testing::TestWithParam<HealthCase> {};

TEST_P(TrackerHealthClassification, AppliesTheRulesInOrder) {
    const HealthCase& row = GetParam();
    const TrackerHealth health =
        TrackerHealth::classify(row.hasCredential, row.helperRunning, row.crashLocked, row.status);
    EXPECT_EQ(health, row.expected)
        << health.statusLabel().toStdString() << " / " << health.message().toStdString();
}

const QString upload = "2024-05-01T10:00:00Z";
const TrackerHealth crashed =
    TrackerHealth::actionRequired("Tracker stopped after repeated crashes.");
const TrackerHealth rejected = TrackerHealth::actionRequired("The API key was rejected.");

INSTANTIATE_TEST_SUITE_P(
    Rules, TrackerHealthClassification,
    testing::Values(HealthCase{"noCredentialOutranksCrashLock", false, true, true,
                               statusWith("unauthorized", upload), TrackerHealth::signInRequired()},
                    HealthCase{"crashLockOutranksUnauthorized", true, false, true,
                               statusWith("unauthorized", upload), crashed},
                    HealthCase{"unauthorizedOutranksStoppedHelper", true, false, false,
                               statusWith("unauthorized", std::nullopt), rejected},
                    HealthCase{"stoppedHelperConnects", true, false, false,
                               statusWith(std::nullopt, upload), TrackerHealth::connecting()},
                    HealthCase{"noReportConnects", true, true, false, std::nullopt,
                               TrackerHealth::connecting()},
                    HealthCase{"networkOutranksUpload", true, true, false,
                               statusWith("network", upload), TrackerHealth::offline()},
                    HealthCase{"uploadTracks", true, true, false, statusWith(std::nullopt, upload),
                               TrackerHealth::tracking()},
                    HealthCase{"otherErrorKindWithUploadTracks", true, true, false,
                               statusWith("server", upload), TrackerHealth::tracking()},
                    HealthCase{"errorKindIsCaseSensitive", true, true, false,
                               statusWith("Network", upload), TrackerHealth::tracking()},
                    HealthCase{"neverUploadedConnects", true, true, false,
                               statusWith(std::nullopt, std::nullopt),
                               TrackerHealth::connecting()}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(TrackerHealth, LabelsEachCase) {
    EXPECT_EQ(TrackerHealth::signInRequired().statusLabel(), "Sign in required");
    EXPECT_EQ(TrackerHealth::connecting().statusLabel(), "Connecting");
    EXPECT_EQ(TrackerHealth::tracking().statusLabel(), "Tracking");
    EXPECT_EQ(TrackerHealth::offline().statusLabel(), "Offline — activity is queued");
    EXPECT_EQ(crashed.statusLabel(), "Action required");
}

class AppStateDiagnostics : public testing::Test {
protected:
    AppHarness harness;
};

TEST_F(AppStateDiagnostics, StartUpAndSignInShowConnectingWhateverTheTrackerSays) {
    harness.supervisor.setCrashLocked(true);
    harness.migration.hold = true;
    auto state = harness.make(true);
    EXPECT_EQ(state->health(), TrackerHealth::connecting());
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return harness.migration.calls == 1; }));
    EXPECT_EQ(state->health(), TrackerHealth::connecting());
    harness.migration.release();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !state->isStarting(); }));
    EXPECT_EQ(state->health(), TrackerHealth::signInRequired());
}

TEST_F(AppStateDiagnostics, SignalsHealthChangesFromTheSupervisor) {
    harness.credentials.stored = "k";
    auto state = harness.make(false);
    AsyncTest::run(state->start());
    int changes = 0;
    QObject::connect(state.get(), &AppState::healthChanged, [&changes] { ++changes; });
    harness.supervisor.setTrackerStatus(statusWith("unauthorized", std::nullopt));
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(state->isCredentialRejected());
    EXPECT_EQ(state->health(), rejected);
    harness.supervisor.setTrackerStatus(statusWith("network", std::nullopt));
    EXPECT_FALSE(state->isCredentialRejected());
}

TEST_F(AppStateDiagnostics, DescribesTheVersionWithFallbacks) {
    auto state = harness.make(false);
    EXPECT_EQ(state->appVersionDescription(), "development (0)");
    harness.installation.version = "1.4.0";
    harness.installation.build = "37";
    EXPECT_EQ(state->appVersionDescription(), "1.4.0 (37)");
}

TEST_F(AppStateDiagnostics, ReportsFallbacksWithoutAStatus) {
    auto state = harness.make(false);
    EXPECT_EQ(state->diagnosticsReport(), "Vantrel diagnostics\n"
                                          "App version: development (0)\n"
                                          "State: Sign in required\n"
                                          "Helper running: false\n"
                                          "Tracker version: unknown\n"
                                          "Queued heartbeats: 0\n"
                                          "Queued activity segments: 0\n"
                                          "Presence coverage: unknown\n"
                                          "Last successful upload: never\n"
                                          "Last error kind: none\n"
                                          "Supervisor error: none");
}

TEST_F(AppStateDiagnostics, ReportsTheTrackerWithoutEverContainingTheKey) {
    const QString key = "vk_live_7f3a9c2e1b";
    harness.credentials.stored = key;
    auto state = harness.make(false);
    AsyncTest::run(state->start());
    TrackerStatus status = statusWith("server", upload);
    status.queuedHeartbeats = 1234567;
    status.queuedActivitySegments = 3;
    harness.supervisor.setTrackerStatus(status);
    harness.supervisor.setCrashLocked(true);
    harness.supervisor.setLastError("Tracker helper exited with status 3.");

    const QString report = state->diagnosticsReport();
    EXPECT_EQ(report.split('\n').size(), 11);
    EXPECT_TRUE(report.contains("State: Action required\n"));
    EXPECT_TRUE(report.contains("Helper running: true\n"));
    EXPECT_TRUE(report.contains("Tracker version: 2.3.0\n"));
    EXPECT_TRUE(report.contains("Queued heartbeats: 1234567\n"));
    EXPECT_TRUE(report.contains("Last successful upload: 2024-05-01T10:00:00Z\n"));
    EXPECT_TRUE(report.contains("Last error kind: server\n"));
    EXPECT_TRUE(report.endsWith("Supervisor error: Tracker helper exited with status 3."));
    EXPECT_FALSE(report.contains(key));

    state->copyDiagnostics();
    EXPECT_EQ(harness.clipboard.text, report);
}

TEST_F(AppStateDiagnostics, RevealsTheLogsThatExistOrElseOpensTheirFolder) {
    QTemporaryDir home;
    harness.home = home.path();
    auto state = harness.make(false);

    state->openLogs();
    ASSERT_EQ(harness.workspace.opened.size(), 1);
    EXPECT_EQ(harness.workspace.opened[0], QUrl::fromLocalFile(home.path() + "/.vantrel/tracker"));

    ASSERT_TRUE(QDir().mkpath(home.path() + "/.vantrel/tracker"));
    QFile errorLog(home.path() + "/.vantrel/tracker/stderr.log");
    ASSERT_TRUE(errorLog.open(QIODevice::WriteOnly));
    errorLog.close();
    state->openLogs();
    EXPECT_EQ(harness.workspace.revealed,
              QList<QStringList>{QStringList{home.path() + "/.vantrel/tracker/stderr.log"}});
}

} // namespace

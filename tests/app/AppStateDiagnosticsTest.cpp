#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "support/TableRows.h"

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

const auto unauthorized = statusWith("unauthorized", upload);
const auto connecting = TrackerHealth::connecting();

// Columns: credential, helper running, crash locked, report.
INSTANTIATE_TEST_SUITE_P(
    Rules, TrackerHealthClassification,
    testing::Values(
        HealthCase{"noCredentialOutranksCrashLock", false, true, true, unauthorized,
                   TrackerHealth::signInRequired()},
        HealthCase{"crashLockOutranksUnauthorized", true, false, true, unauthorized, crashed},
        HealthCase{"unauthorizedOutranksStoppedHelper", true, false, false, unauthorized, rejected},
        HealthCase{"stoppedHelperConnects", true, false, false, statusWith({}, upload), connecting},
        HealthCase{"noReportConnects", true, true, false, std::nullopt, connecting},
        HealthCase{"networkOutranksUpload", true, true, false, statusWith("network", upload),
                   TrackerHealth::offline()},
        HealthCase{"uploadTracks", true, true, false, statusWith({}, upload),
                   TrackerHealth::tracking()},
        HealthCase{"neverUploadedConnects", true, true, false, statusWith({}, {}), connecting}),
    rowName);

TEST(AppStateDiagnostics, ReportsFallbacksThenTheTrackerButNeverTheKey) {
    AppHarness harness;
    const QString key = "vk_live_7f3a9c2e1b";
    harness.credentials.stored = key;
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

    AsyncTest::run(state->start());
    harness.installation.version = "1.4.0";
    harness.installation.build = "37";
    TrackerStatus status = statusWith("server", upload);
    status.queuedHeartbeats = 1234567;
    harness.supervisor.setTrackerStatus(status);
    harness.supervisor.setCrashLocked(true);
    harness.supervisor.setLastError("Tracker helper exited with status 3.");

    const QString report = state->diagnosticsReport();
    EXPECT_EQ(report.split('\n').size(), 11);
    for (const char* line : {"\nApp version: 1.4.0 (37)\n", "\nState: Action required\n",
                             "\nQueued heartbeats: 1234567\n", "\nLast error kind: server\n",
                             "\nSupervisor error: Tracker helper exited with status 3."}) {
        EXPECT_TRUE(report.contains(line)) << line;
    }
    EXPECT_FALSE(report.contains(key));
    state->copyDiagnostics();
    EXPECT_EQ(harness.clipboard.text, report);
}

TEST(AppStateDiagnostics, RevealsOnlyTheLogsThatExistElseOpensTheirFolder) {
    QTemporaryDir home;
    AppHarness harness;
    harness.home = home.path();
    auto state = harness.make(false);
    const QString folder = home.path() + "/.vantrel/tracker";

    state->openLogs();
    EXPECT_EQ(harness.workspace.opened, QList<QUrl>{QUrl::fromLocalFile(folder)});

    ASSERT_TRUE(QDir().mkpath(folder));
    QFile errorLog(folder + "/stderr.log");
    ASSERT_TRUE(errorLog.open(QIODevice::WriteOnly));
    errorLog.close();
    state->openLogs();
    EXPECT_EQ(harness.workspace.revealed, QList<QStringList>{{folder + "/stderr.log"}});
}

} // namespace

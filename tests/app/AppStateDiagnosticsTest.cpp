#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TrackerStatus statusWith(std::optional<QString> errorKind, std::optional<QString> lastUpload) {
    TrackerStatus status = sampleTrackerStatus();
    status.lastUploadErrorKind = std::move(errorKind);
    status.lastSuccessfulUploadAt = std::move(lastUpload);
    return status;
}

const QString upload = "2024-05-01T10:00:00Z";

// Each row sits just past the rule that outranks it: credential, crash lock, rejected key,
// running helper with a report, network, upload.
TEST(TrackerHealthClassification, AppliesTheRulesInOrder) {
    const auto unauthorized = statusWith("unauthorized", upload);
    const auto connecting = TrackerHealth::connecting();
    const struct {
        bool hasCredential, helperRunning, crashLocked;
        std::optional<TrackerStatus> status;
        TrackerHealth expected;
    } rows[] = {
        {false, true, true, unauthorized, TrackerHealth::signInRequired()},
        {true, false, true, unauthorized,
         TrackerHealth::actionRequired("Tracker stopped after repeated crashes.")},
        {true, false, false, unauthorized,
         TrackerHealth::actionRequired("The API key was rejected.")},
        {true, false, false, statusWith({}, upload), connecting},
        {true, true, false, std::nullopt, connecting},
        {true, true, false, statusWith("network", upload), TrackerHealth::offline()},
        {true, true, false, statusWith({}, upload), TrackerHealth::tracking()},
        {true, true, false, statusWith({}, {}), connecting},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TrackerHealth::classify(row.hasCredential, row.helperRunning, row.crashLocked,
                                          row.status),
                  row.expected)
            << row.expected.statusLabel().toStdString();
    }
}

// The logs are revealed when they exist, else their folder is opened.
TEST(AppStateDiagnostics, ReportsFallbacksThenTheTrackerButNeverTheKeyAndFindsTheLogs) {
    QTemporaryDir home;
    AppHarness harness;
    harness.home = home.path();
    const QString key = "vk_live_7f3a9c2e1b";
    harness.credentials.stored = key;
    auto state = harness.make(false);
    EXPECT_EQ(state->diagnosticsReport(),
              "Vantrel diagnostics\nApp version: development (0)\nState: Sign in required\n"
              "Helper running: false\nTracker version: unknown\nQueued heartbeats: 0\n"
              "Queued activity segments: 0\nPresence coverage: unknown\n"
              "Last successful upload: never\nLast error kind: none\nSupervisor error: none");
    const QString folder = home.path() + "/.vantrel/tracker";
    state->openLogs();
    EXPECT_EQ(harness.workspace.opened, QList<QUrl>{QUrl::fromLocalFile(folder)});

    AsyncTest::run(state->start());
    harness.installation.version = "1.4.0";
    harness.installation.build = "37";
    TrackerStatus status = statusWith("server", upload);
    status.queuedHeartbeats = 1234567;
    harness.supervisor.setTrackerStatus(status);
    harness.supervisor.setCrashLocked(true);
    harness.supervisor.setLastError("Tracker helper exited with status 3.");

    const QString report = state->diagnosticsReport();
    for (const char* line : {"\nApp version: 1.4.0 (37)\n", "\nState: Action required\n",
                             "\nQueued heartbeats: 1234567\n", "\nLast error kind: server\n",
                             "\nSupervisor error: Tracker helper exited with status 3."}) {
        EXPECT_TRUE(report.contains(line)) << line;
    }
    EXPECT_FALSE(report.contains(key));
    state->copyDiagnostics();
    EXPECT_EQ(harness.clipboard.text, report);

    ASSERT_TRUE(QDir().mkpath(folder));
    writeFile(folder + "/stderr.log", {});
    state->openLogs();
    EXPECT_EQ(harness.workspace.revealed, QList<QStringList>{{folder + "/stderr.log"}});
}

} // namespace

#include "ui/DiagnosticsPresenter.h"

#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <QSignalSpy>

#include <functional>
#include <gtest/gtest.h>

namespace {

// The rows as "label: value" lines, for readable failures.
QStringList lines(const DiagnosticsPresenter& presenter) {
    QStringList result;
    for (const auto& row : presenter.rows()) {
        result.append(row.label + ": " + row.value);
    }
    return result;
}

struct Scene {
    AppHarness harness;
    std::unique_ptr<AppState> state = harness.make(false);
    DiagnosticsPresenter presenter{*state, harness.supervisor};

    void signIn() {
        harness.credentials.stored = "vk_live_1";
        AsyncTest::run(state->start());
    }
};

TEST(DiagnosticsPresenter, FallsBackForEveryStatusRowWithoutAReport) {
    Scene scene;
    EXPECT_EQ(
        lines(scene.presenter),
        QStringList({"App version: development (0)", "State: Sign in required", "Helper: Stopped",
                     "Tracker version: Unknown", "Device identity: Unknown", "Queued heartbeats: 0",
                     "Queued focus segments: 0", "Dropped heartbeats: 0",
                     "Dropped focus segments: 0", "Presence coverage: Unknown",
                     "Last successful sync: Never", "Last error kind: None"}));
    EXPECT_EQ(scene.presenter.healthSymbolName(), "person.crop.circle.badge.exclamationmark");
    EXPECT_FALSE(scene.presenter.errorLine().has_value());
}

TEST(DiagnosticsPresenter, ShowsAStaleReportAsReceivedBesideAStoppedHelper) {
    Scene scene;
    scene.signIn();
    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 1234567;
    status.queuedActivitySegments = 12;
    status.droppedHeartbeats = 3;
    status.droppedActivitySegments = 4;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07.250+02:00";
    status.lastUploadErrorKind = "network";
    QSignalSpy changes(&scene.presenter, &DiagnosticsPresenter::changed);
    scene.harness.supervisor.setTrackerStatus(status);
    scene.harness.supervisor.setHelperRunning(false);

    EXPECT_FALSE(changes.isEmpty());
    EXPECT_EQ(lines(scene.presenter).mid(1),
              QStringList({"State: Connecting", "Helper: Stopped", "Tracker version: 2.3.0",
                           "Device identity: 6F9619FF-8B86-D011-B42D-00C04FC964FF",
                           "Queued heartbeats: 1234567", "Queued focus segments: 12",
                           "Dropped heartbeats: 3", "Dropped focus segments: 4",
                           "Presence coverage: full",
                           "Last successful sync: 2026-05-01T09:58:07.250+02:00",
                           "Last error kind: network"}));

    status.lastSuccessfulUploadAt.reset();
    scene.harness.supervisor.setTrackerStatus(status);
    EXPECT_EQ(scene.presenter.rows()[10].value, "Never");
}

TEST(DiagnosticsPresenter, ShowsActionRequiredWithoutItsMessageAndTheSupervisorErrorFirst) {
    Scene scene;
    scene.signIn();
    scene.harness.supervisor.setCrashLocked(true);
    scene.harness.supervisor.setLastError("Tracker helper exited with status 3.");
    scene.harness.installation.helper.reset();
    scene.state->startTracker("vk_live_1"); // presents the helper-missing message

    EXPECT_EQ(scene.presenter.rows()[1].value, "Action required");
    EXPECT_EQ(scene.presenter.healthSymbolName(), "exclamationmark.triangle.fill");
    ASSERT_TRUE(scene.state->presentedError().has_value());
    EXPECT_EQ(scene.presenter.errorLine(), "Tracker helper exited with status 3.");

    scene.harness.supervisor.setLastError(std::nullopt);
    EXPECT_EQ(scene.presenter.errorLine(), scene.state->presentedError());
}

} // namespace

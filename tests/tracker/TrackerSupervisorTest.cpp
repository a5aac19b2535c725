#include "tracker/TrackerSupervisor.h"

#include "FakeTrackerProcessRunner.h"
#include "app/PlatformError.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

const QString exitedWithStatus3 = "Tracker helper exited with status 3.";

LaunchConfiguration configuration(const QString& deviceName = "desk") {
    return {"/opt/vantrel/vantrel-tracker",
            "/home/a/.vantrel/config.toml",
            "secret-key",
            deviceName,
            "/home/a/.vantrel/tracker/stdout.log",
            "/home/a/.vantrel/tracker/stderr.log"};
}

TrackerStatus statusWithVersion(const QString& version) {
    TrackerStatus status;
    status.trackerVersion = version;
    return status;
}

QCoro::Task<void> refreshAndCount(TrackerSupervisor* supervisor, int* completed) {
    co_await supervisor->refreshStatus();
    ++*completed;
}

QCoro::Task<void> refreshPairAndCount(TrackerSupervisor* supervisor, QString executable,
                                      int* completed) {
    co_await supervisor->refreshStatus(executable, "/home/a/.vantrel/config.toml");
    ++*completed;
}

class TrackerSupervisorTest : public testing::Test {
protected:
    FakeSleeper sleeper;
    FakeTrackerProcessRunner runner{[this] { return sleeper.elapsed; }};
    TrackerSupervisor supervisor{runner, sleeper, 4};

    // A held sleep that is cancelled ends on a later turn; let it end while the sleeper exists.
    void TearDown() override {
        supervisor.stop(true);
        AsyncTest::spin(10ms);
    }

    void failEveryLaunch() {
        runner.launchFailure = [this] {
            throw PlatformError("launch failure " + QString::number(runner.launchTimes.size()));
        };
    }
};

TEST_F(TrackerSupervisorTest, FailingLaunchesBackOffExponentiallyThenLock) {
    failEveryLaunch();
    supervisor.start(configuration());

    ASSERT_TRUE(AsyncTest::waitUntil([&] { return supervisor.crashLocked(); }));
    AsyncTest::spin(50ms);
    EXPECT_EQ(runner.launchTimes, (QList<double>{0, 1, 3, 7, 15}));
    EXPECT_EQ(sleeper.requested, (QList<double>{1, 2, 4, 8}));
    EXPECT_EQ(supervisor.lastError(), "launch failure 5");
    EXPECT_FALSE(supervisor.helperRunning());
}

TEST_F(TrackerSupervisorTest, AnExitAfterTwoRestartsWaitsFourSeconds) {
    sleeper.hold = true;
    supervisor.start(configuration());
    for (int restart = 0; restart < 2; ++restart) {
        runner.exitHelper(restart, 1);
        ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
        sleeper.releaseOne();
        ASSERT_TRUE(AsyncTest::waitUntil([&] { return runner.helpers.size() == restart + 2; }));
    }
    EXPECT_TRUE(supervisor.helperRunning());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);

    runner.exitHelper(2, 3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    EXPECT_EQ(supervisor.lastError(), exitedWithStatus3);
    EXPECT_FALSE(supervisor.helperRunning());
    EXPECT_EQ(sleeper.requested.last(), 4);
}

TEST_F(TrackerSupervisorTest, StopDuringARestartWaitCancelsTheRestart) {
    sleeper.hold = true;
    supervisor.start(configuration());
    runner.exitHelper(0, 3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));

    supervisor.stop(true);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 0; }));
    AsyncTest::spin(20ms);
    EXPECT_EQ(runner.launchTimes.size(), 1);
    EXPECT_EQ(supervisor.launchConfiguration(), std::nullopt);
    EXPECT_EQ(supervisor.lastError(), exitedWithStatus3);
}

TEST_F(TrackerSupervisorTest, StartWhileLockedClearsTheLockAndTheBudget) {
    failEveryLaunch();
    supervisor.start(configuration());
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return supervisor.crashLocked(); }));

    runner.launchFailure = nullptr;
    supervisor.start(configuration());
    EXPECT_FALSE(supervisor.crashLocked());
    EXPECT_EQ(runner.launchTimes.size(), 6);
    EXPECT_EQ(runner.launchTimes.last(), 15);
    EXPECT_TRUE(supervisor.helperRunning());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);

    runner.exitHelper(0, 3); // the first launch that produced a helper
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return runner.launchTimes.size() == 7; }));
    EXPECT_EQ(sleeper.requested.last(), 1);
}

TEST_F(TrackerSupervisorTest, ALateExitOfAReplacedHelperChangesNothing) {
    sleeper.hold = true;
    supervisor.start(configuration("first"));
    supervisor.start(configuration("second"));
    ASSERT_TRUE(runner.helpers.at(0)->terminated);

    // The first helper's SIGTERM exit arrives on a later turn, after the second launch.
    AsyncTest::spin(30ms);
    EXPECT_EQ(runner.launchTimes.size(), 2);
    EXPECT_TRUE(supervisor.helperRunning());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
    EXPECT_TRUE(sleeper.requested.isEmpty());

    // The current helper's own exit is still noticed.
    runner.exitHelper(1, 3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return supervisor.lastError() == exitedWithStatus3; }));
}

TEST_F(TrackerSupervisorTest, AReportReadWhileTheHelperIsDownKeepsTheExitMessage) {
    sleeper.hold = true;
    supervisor.start(configuration());
    runner.exitHelper(0, 3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));

    runner.status = statusWithVersion("2.0");
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), statusWithVersion("2.0"));
    EXPECT_EQ(supervisor.lastError(), exitedWithStatus3);
}

TEST_F(TrackerSupervisorTest, AReportReadWhileTheHelperRunsClearsTheError) {
    supervisor.start(configuration());
    runner.statusFailure = "no state";
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.lastError(), "Tracker helper exited with status 1: no state");

    runner.statusFailure.reset();
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
}

TEST_F(TrackerSupervisorTest, AFailedReadKeepsThePreviousReport) {
    runner.status = statusWithVersion("1.0");
    AsyncTest::run(supervisor.refreshStatus("/opt/helper", "/home/a/config.toml"));
    QSignalSpy statusChanges(&supervisor, &TrackerSupervising::trackerStatusChanged);

    runner.statusFailure = "broken";
    AsyncTest::run(supervisor.refreshStatus("/opt/helper", "/home/a/config.toml"));
    EXPECT_EQ(supervisor.trackerStatus(), statusWithVersion("1.0"));
    EXPECT_EQ(supervisor.lastError(), "Tracker helper exited with status 1: broken");

    runner.statusFailure.reset();
    AsyncTest::run(supervisor.refreshStatus("/opt/helper", "/home/a/config.toml"));
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
    EXPECT_EQ(statusChanges.count(), 0); // the same report again is no change
    EXPECT_FALSE(supervisor.helperRunning());
}

TEST_F(TrackerSupervisorTest, RefreshWithoutConfigurationForgetsTheReportAndRunsNothing) {
    AsyncTest::run(supervisor.refreshStatus("/opt/helper", "/home/a/config.toml"));
    ASSERT_TRUE(supervisor.trackerStatus().has_value());

    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), std::nullopt);
    EXPECT_EQ(runner.statusCommands, 1);
}

TEST_F(TrackerSupervisorTest, RefreshesShareTheCommandInFlightAndNeverOverlap) {
    runner.holdStatus = true;
    supervisor.start(configuration()); // reads the status once at once
    ASSERT_EQ(runner.statusCommandsInFlight, 1);

    int completed = 0;
    refreshAndCount(&supervisor, &completed);
    refreshPairAndCount(&supervisor, configuration().executableURL, &completed);
    refreshPairAndCount(&supervisor, "/elsewhere/vantrel-tracker", &completed);
    AsyncTest::spin(20ms);
    EXPECT_EQ(runner.statusCommands, 1);
    EXPECT_EQ(completed, 0);

    runner.releaseStatus();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 2; }));
    // Only now does the command for the other helper start.
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return runner.statusCommandsInFlight == 1; }));
    EXPECT_EQ(runner.statusCommands, 2);
    runner.releaseStatus();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 3; }));
    supervisor.stop(true);
}

TEST(TrackerSupervisorPolling, PollsAtTheIntervalUntilStopped) {
    FakeSleeper sleeper;
    FakeTrackerProcessRunner runner;
    TrackerSupervisor supervisor(runner, sleeper, 4, 20ms);
    supervisor.start(configuration());
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return runner.statusCommands >= 4; }));

    supervisor.stop(true);
    AsyncTest::spin(20ms);
    const int commands = runner.statusCommands;
    AsyncTest::spin(100ms);
    EXPECT_EQ(runner.statusCommands, commands);
    EXPECT_TRUE(sleeper.requested.isEmpty()); // polling never goes through the sleeper
}

TEST(TrackerSupervisorLifetime, ReleasingTheSupervisorEndsItsPendingRestart) {
    FakeSleeper sleeper;
    sleeper.hold = true;
    FakeTrackerProcessRunner runner;
    auto supervisor = std::make_unique<TrackerSupervisor>(runner, sleeper, 4);
    supervisor->start(configuration());
    runner.exitHelper(0, 3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));

    supervisor.reset();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 0; }));
    AsyncTest::spin(20ms);
    EXPECT_EQ(runner.launchTimes.size(), 1);
}

} // namespace

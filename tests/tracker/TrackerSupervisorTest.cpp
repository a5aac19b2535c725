#include "tracker/TrackerSupervisor.h"

#include "core/PlatformError.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "tracker/TrackerSupervisorError.h"

#include <QSignalSpy>
#include <QTimer>

#include <csignal>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

// It ends when the test says so or, once terminated, with SIGTERM's number; the exit is reported
// on a later turn, like a real one.
class FakeHelper : public TrackerProcessHandling {
public:
    explicit FakeHelper(TrackerProcessRunning::ExitHandler onExit)
        : m_onExit(std::move(onExit)) {}
    bool isRunning() const override { return m_running; }
    void terminate() override {
        if (m_running) {
            end(SIGTERM);
        }
    }
    void end(qint32 status) {
        m_running = false;
        QTimer::singleShot(0, [handler = m_onExit, status] { handler(status); });
    }

private:
    TrackerProcessRunning::ExitHandler m_onExit;
    bool m_running = true;
};

const QString exitedWithStatus3 = "Tracker helper exited with status 3.";
const LaunchConfiguration configuration{
    "/opt/vantrel/vantrel-tracker", "/home/a/config.toml", "secret-key", "desk",
    "/home/a/stdout.log",           "/home/a/stderr.log"};

// The fixture is the supervisor's runner. Launches are recorded at the sleeper's virtual time;
// every status command waits on `statusGate`: one turn, or until released while the gate holds.
class TrackerSupervisorTest : public testing::Test, public TrackerProcessRunning {
protected:
    std::unique_ptr<TrackerProcessHandling> startHelper(const LaunchConfiguration&,
                                                        ExitHandler onExit) override {
        launchTimes.append(sleeper.elapsed);
        if (failLaunches) {
            throw PlatformError("launch failure " + QString::number(launchTimes.size()));
        }
        auto helper = std::make_unique<FakeHelper>(std::move(onExit));
        helpers.append(helper.get()); // owned by the supervisor: gone once it lets go
        return helper;
    }

    QCoro::Task<TrackerStatus> runStatus(QString, QString) override {
        co_await statusGate.sleep(0, CancellationToken());
        if (statusFailure) {
            throw TrackerSupervisorError::helperExited(1, *statusFailure);
        }
        co_return TrackerStatus(status); // a copy: QCoro 0.8 moves from a named lvalue
    }

    bool failLaunches = false;
    QList<double> launchTimes;
    QList<FakeHelper*> helpers;
    FakeSleeper statusGate;
    TrackerStatus status;
    std::optional<QString> statusFailure;
    FakeSleeper sleeper;
    TrackerSupervisor supervisor{*this, sleeper, 4};

    // A held sleep that is cancelled ends on a later turn; let it end while the sleeper exists.
    void TearDown() override {
        supervisor.stop(true);
        AsyncTest::spin(10ms);
    }
};

// Five launches in vain lock; a new start clears the lock and the restart budget. A replaced
// helper's exit arrives late and changes nothing; the current one's is noticed. (Helpers that
// exit at once take the same road through real processes in the fault matrix.)
TEST_F(TrackerSupervisorTest, FailingLaunchesBackOffThenLockUntilTheNextStart) {
    failLaunches = true;
    supervisor.start(configuration);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return supervisor.crashLocked(); }));
    AsyncTest::spin(50ms);
    EXPECT_EQ(launchTimes, (QList<double>{0, 1, 3, 7, 15}));
    EXPECT_EQ(supervisor.lastError(), "launch failure 5");

    failLaunches = false;
    supervisor.start(configuration);
    supervisor.start(configuration);
    EXPECT_FALSE(supervisor.crashLocked());
    AsyncTest::spin(20ms); // the replaced helper's exit arrives
    EXPECT_EQ(launchTimes.size(), 7);
    EXPECT_TRUE(supervisor.helperRunning());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);

    sleeper.hold = true;
    helpers.last()->end(3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    EXPECT_EQ(sleeper.requested.last(), 1);
    EXPECT_EQ(supervisor.lastError(), exitedWithStatus3);
}

// Stopping a supervisor or letting it go ends its status polling and its wait for a restart.
TEST_F(TrackerSupervisorTest, StopOrReleaseEndsPollingAndCancelsTheRestart) {
    sleeper.hold = true;
    TrackerSupervisor stopped(*this, sleeper, 4, 20ms);
    auto released = std::make_unique<TrackerSupervisor>(*this, sleeper, 4);
    stopped.start(configuration);
    released->start(configuration);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return statusGate.requested.size() >= 5; }));
    helpers.at(0)->end(3);
    helpers.at(1)->end(3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 2; }));

    stopped.stop(true);
    released.reset();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 0; }));
    AsyncTest::spin(20ms);
    const auto commands = statusGate.requested.size();
    AsyncTest::spin(100ms);
    EXPECT_EQ(statusGate.requested.size(), commands);
    EXPECT_EQ(launchTimes.size(), 2);
    EXPECT_EQ(stopped.lastError(), exitedWithStatus3);
}

TEST_F(TrackerSupervisorTest, StatusReadsKeepTheLastReportAndClearErrorsOnlyWhileTheHelperRuns) {
    status.trackerVersion = "1.0";
    supervisor.start(configuration);
    AsyncTest::run(supervisor.refreshStatus());
    QSignalSpy statusChanges(&supervisor, &TrackerSupervising::trackerStatusChanged);
    statusFailure = "broken";
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), status);
    EXPECT_EQ(supervisor.lastError(), "Tracker helper exited with status 1: broken");
    statusFailure.reset();
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
    EXPECT_EQ(statusChanges.count(), 0); // the same report again is no change

    sleeper.hold = true;
    helpers.at(0)->end(3);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    status.trackerVersion = "2.0";
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), status);
    EXPECT_EQ(supervisor.lastError(), exitedWithStatus3); // the helper is down: that stays news

    supervisor.stop(true);
    AsyncTest::run(supervisor.refreshStatus()); // no launch configuration: nothing to read
    EXPECT_EQ(supervisor.trackerStatus(), std::nullopt);
}

TEST_F(TrackerSupervisorTest, RefreshesShareTheCommandInFlightAndNeverOverlap) {
    statusGate.hold = true;
    supervisor.start(configuration); // reads the status once at once
    ASSERT_EQ(statusGate.pendingCount(), 1);

    int completed = 0;
    const auto count = [&completed](QCoro::Task<void> refresh) -> QCoro::Task<void> {
        co_await std::move(refresh);
        ++completed;
    };
    count(supervisor.refreshStatus());
    count(supervisor.refreshStatus(configuration.executableURL, configuration.configURL));
    count(supervisor.refreshStatus("/elsewhere/vantrel-tracker", configuration.configURL));
    AsyncTest::spin(20ms);
    EXPECT_EQ(statusGate.requested.size(), 1);
    EXPECT_EQ(completed, 0);

    statusGate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 2; }));
    // Only now does the command for the other helper start.
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return statusGate.pendingCount() == 1; }));
    EXPECT_EQ(statusGate.requested.size(), 2);
    statusGate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 3; }));
}

} // namespace

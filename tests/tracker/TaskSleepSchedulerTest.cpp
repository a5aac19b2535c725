#include "tracker/TaskSleepScheduler.h"

#include "app/TaskHandle.h"
#include "support/AsyncTest.h"

#include <QElapsedTimer>
#include <QTimer>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace std::chrono_literals;

TEST(TaskSleepScheduler, ConvertsSecondsToWholeNanosecondsWithinRange) {
    EXPECT_EQ(TaskSleepScheduler::duration(-5), 0ns);
    EXPECT_EQ(TaskSleepScheduler::duration(0), 0ns);
    EXPECT_EQ(TaskSleepScheduler::duration(std::nan("")), 0ns);
    EXPECT_EQ(TaskSleepScheduler::duration(1.5), 1500000000ns);
    EXPECT_EQ(TaskSleepScheduler::duration(1e-10), 0ns);
    const auto longest = std::chrono::nanoseconds(std::numeric_limits<qint64>::max());
    EXPECT_EQ(TaskSleepScheduler::duration(std::numeric_limits<double>::infinity()), longest);
    EXPECT_EQ(TaskSleepScheduler::duration(1e300), longest);
}

TEST(TaskSleepScheduler, NegativeDurationReturnsAtOnce) {
    TaskSleepScheduler sleeper;
    QElapsedTimer clock;
    clock.start();
    AsyncTest::run(sleeper.sleep(-5, CancellationToken()));
    EXPECT_LT(clock.elapsed(), 50);
}

TEST(TaskSleepScheduler, SleepsForTheRequestedTime) {
    TaskSleepScheduler sleeper;
    QElapsedTimer clock;
    clock.start();
    AsyncTest::run(sleeper.sleep(0.2, CancellationToken()));
    EXPECT_GE(clock.elapsed(), 200);
}

TEST(TaskSleepScheduler, CancellationEndsALongSleepEarlyWithoutAnError) {
    TaskSleepScheduler sleeper;
    TaskHandle task;
    QTimer::singleShot(100, [&task] { task.cancel(); });
    QElapsedTimer clock;
    clock.start();
    EXPECT_NO_THROW(AsyncTest::run(sleeper.sleep(30, task.token())));
    EXPECT_LT(clock.elapsed(), AsyncTest::scaled(5s).count());
}

TEST(TaskSleepScheduler, AnAlreadyCancelledTaskDoesNotSleep) {
    TaskSleepScheduler sleeper;
    TaskHandle task;
    task.cancel();
    QElapsedTimer clock;
    clock.start();
    AsyncTest::run(sleeper.sleep(30, task.token()));
    EXPECT_LT(clock.elapsed(), 100);
}

} // namespace

#include "tracker/TaskSleepScheduler.h"

#include "core/TaskHandle.h"
#include "support/AsyncTest.h"

#include <QElapsedTimer>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(TaskSleepScheduler, ConvertsSecondsToWholeNanosecondsWithinRange) {
    EXPECT_EQ(TaskSleepScheduler::duration(-5), 0ns);
    EXPECT_EQ(TaskSleepScheduler::duration(1.5), 1500000000ns);
    EXPECT_EQ(TaskSleepScheduler::duration(1e300), std::chrono::nanoseconds::max());
}

TEST(TaskSleepScheduler, SleepsUntilCancelledThenEndsWithoutAnError) {
    TaskSleepScheduler sleeper;
    TaskHandle task;
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(100, [&task] { task.cancel(); });
    EXPECT_NO_THROW(AsyncTest::run(sleeper.sleep(30, task.token())));
    EXPECT_GE(clock.elapsed(), 100);
    EXPECT_LT(clock.elapsed(), AsyncTest::scaled(5s).count());
}

} // namespace

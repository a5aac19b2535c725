#include "app/CancellableSleep.h"
#include "app/CancellationError.h"
#include "app/TaskHandle.h"
#include "support/AsyncTest.h"

#include <QElapsedTimer>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(Cancellation, CallbacksRunOnALaterTurnNeverInsideCancel) {
    TaskHandle task;
    QObject context;
    int calls = 0;
    task.token().onCancel(&context, [&calls] { ++calls; });
    task.cancel();
    task.cancel();
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return calls == 1; }));
    AsyncTest::spin(10ms);
    EXPECT_EQ(calls, 1) << "cancelling twice notifies once";
}

TEST(Cancellation, ATokenCancelledBeforehandStillNotifies) {
    TaskHandle task;
    task.cancel();
    QObject context;
    bool called = false;
    task.token().onCancel(&context, [&called] { called = true; });
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return called; }));
    EXPECT_THROW(task.token().throwIfCancelled(), CancellationError);
}

TEST(Cancellation, ACallbackDiesWithItsContext) {
    TaskHandle task;
    bool called = false;
    {
        QObject context;
        task.token().onCancel(&context, [&called] { called = true; });
    }
    task.cancel();
    AsyncTest::spin(20ms);
    EXPECT_FALSE(called);
}

TEST(Cancellation, ADefaultTokenIsNeverCancelled) {
    const CancellationToken token;
    EXPECT_FALSE(token.isCancelled());
    EXPECT_NO_THROW(token.throwIfCancelled());
}

TEST(CancellableSleep, ManySleepersWakeIndependently) {
    TaskHandle cancelled;
    bool shortDone = false;
    bool longDone = false;
    auto shortSleep = [&]() -> QCoro::Task<void> {
        co_await cancellableSleep(30ms, CancellationToken());
        shortDone = true;
    };
    auto longSleep = [&]() -> QCoro::Task<void> {
        co_await cancellableSleep(60s, cancelled.token());
        longDone = true;
    };
    auto a = shortSleep();
    auto b = longSleep();
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return shortDone; }));
    EXPECT_FALSE(longDone);
    QElapsedTimer clock;
    clock.start();
    cancelled.cancel();
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return longDone; }));
    EXPECT_LT(clock.elapsed(), AsyncTest::scaled(1s).count());
}

} // namespace

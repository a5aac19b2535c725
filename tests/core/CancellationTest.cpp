#include "core/CancellationError.h"
#include "core/TaskHandle.h"
#include "support/AsyncTest.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(Cancellation, NotifiesOnceOnALaterTurnAndNeverADeadContext) {
    TaskHandle task;
    QObject context;
    int calls = 0;
    bool deadContextCalled = false;
    task.token().onCancel(&context, [&calls] { ++calls; });
    {
        QObject shortLived;
        task.token().onCancel(&shortLived, [&deadContextCalled] { deadContextCalled = true; });
    }
    task.cancel();
    task.cancel();
    EXPECT_EQ(calls, 0) << "never inside cancel()";
    task.token().onCancel(&context, [&calls] { calls += 10; }); // registered afterwards
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return calls == 11; }));
    AsyncTest::spin(10ms);
    EXPECT_EQ(calls, 11) << "cancelling twice notifies once";
    EXPECT_FALSE(deadContextCalled);
    EXPECT_THROW(task.token().throwIfCancelled(), CancellationError);
    EXPECT_NO_THROW(CancellationToken().throwIfCancelled());
}

} // namespace

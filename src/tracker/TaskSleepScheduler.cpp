#include "tracker/TaskSleepScheduler.h"

#include "core/CancellableSleep.h"

#include <cmath>
#include <limits>

std::chrono::nanoseconds TaskSleepScheduler::duration(double seconds) {
    if (!(seconds > 0)) {
        return std::chrono::nanoseconds::zero();
    }
    using Rep = std::chrono::nanoseconds::rep;
    const double nanoseconds = seconds * 1e9;
    // The largest double below 2^63; comparing against the integer limit would round up past it.
    constexpr double limit = 9223372036854774784.0;
    if (!(nanoseconds < limit)) {
        return std::chrono::nanoseconds(std::numeric_limits<Rep>::max());
    }
    return std::chrono::nanoseconds(static_cast<Rep>(nanoseconds));
}

QCoro::Task<void> TaskSleepScheduler::sleep(double seconds, CancellationToken token) {
    co_await cancellableSleep(duration(seconds), std::move(token));
}

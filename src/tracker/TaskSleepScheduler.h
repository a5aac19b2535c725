#pragma once

#include "core/SleepScheduling.h"

// The production sleeper: an event-loop timer that ends early, without error, on cancellation.
class TaskSleepScheduler : public SleepScheduling {
public:
    QCoro::Task<void> sleep(double seconds, CancellationToken token) override;

    // Seconds as whole nanoseconds: negative, zero and NaN give 0; anything beyond what 64 bits
    // of nanoseconds can count (about 292 years, infinity included) is clamped to that.
    static std::chrono::nanoseconds duration(double seconds);
};

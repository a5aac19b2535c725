#pragma once

#include "core/CancellationToken.h"

#include <QCoroTask>

// The waiting service shared by the supervisor's restarts, the today-summary poller and the
// legacy migration. `sleep` suspends the calling task for `seconds`, or less when `token` is
// cancelled; it never fails, so callers check the token themselves after it returns.
class SleepScheduling {
public:
    virtual ~SleepScheduling() = default;
    virtual QCoro::Task<void> sleep(double seconds, CancellationToken token) = 0;
};

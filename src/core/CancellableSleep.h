#pragma once

#include "core/CancellationToken.h"

#include <QCoroTask>

#include <chrono>

// The task's own sleep: suspends the calling coroutine on the GUI thread's event loop for
// `duration`, or until `token` is cancelled, whichever comes first. It never throws; callers
// check the token after it returns. Durations of zero or less return at once.
QCoro::Task<void> cancellableSleep(std::chrono::nanoseconds duration, CancellationToken token);

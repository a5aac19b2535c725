#pragma once

#include <QCoroTask>

#include <chrono>
#include <functional>

namespace AsyncTest {

// Multiplies every test timeout; shared 2-core machines set VANTREL_TEST_TIMEOUT_FACTOR.
double timeoutFactor();
std::chrono::milliseconds scaled(std::chrono::milliseconds timeout);

// Runs the event loop until `predicate` holds or the (scaled) timeout passes; returns the
// predicate's final value.
bool waitUntil(const std::function<bool()>& predicate,
               std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Runs the event loop for `duration`, letting queued work and timers happen.
void spin(std::chrono::milliseconds duration = std::chrono::milliseconds(0));

// Runs `task` to completion on the event loop and returns its result (rethrowing its error).
template <typename T>
T run(QCoro::Task<T>&& task) {
    return QCoro::waitFor(std::move(task));
}

} // namespace AsyncTest

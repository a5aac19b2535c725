#pragma once

#include <QCoroTask>

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <type_traits>

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

namespace detail {

// QCoro 0.8's waitFor never returns when the awaited task throws (its loop is never quit), so the
// error is caught inside the coroutine and rethrown outside.
template <typename T>
QCoro::Task<std::optional<T>> capture(QCoro::Task<T> task, std::exception_ptr* error) {
    try {
        co_return co_await std::move(task);
    } catch (...) {
        *error = std::current_exception();
    }
    co_return std::nullopt;
}

inline QCoro::Task<void> captureVoid(QCoro::Task<void> task, std::exception_ptr* error) {
    try {
        co_await std::move(task);
    } catch (...) {
        *error = std::current_exception();
    }
}

} // namespace detail

// Runs `task` to completion on the event loop and returns its result (rethrowing its error).
template <typename T>
T run(QCoro::Task<T>&& task) {
    std::exception_ptr error;
    if constexpr (std::is_void_v<T>) {
        QCoro::waitFor(detail::captureVoid(std::move(task), &error));
        if (error) {
            std::rethrow_exception(error);
        }
    } else {
        std::optional<T> result = QCoro::waitFor(detail::capture(std::move(task), &error));
        if (error) {
            std::rethrow_exception(error);
        }
        return std::move(*result);
    }
}

} // namespace AsyncTest

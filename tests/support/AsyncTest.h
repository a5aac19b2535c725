#pragma once

#include "core/VantrelError.h"

#include <QCoroTask>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <variant>

namespace AsyncTest {

// Multiplies every test timeout; shared 2-core machines set VANTREL_TEST_TIMEOUT_FACTOR.
std::chrono::milliseconds scaled(std::chrono::milliseconds timeout);

// Runs the event loop until `predicate` holds or the (scaled) timeout passes; returns the
// predicate's final value.
bool waitUntil(const std::function<bool()>& predicate,
               std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Runs the event loop for `duration`, letting queued work and timers happen.
void spin(std::chrono::milliseconds duration = std::chrono::milliseconds(0));

// Runs `task` to completion on the event loop and returns its result, rethrowing its error.
// Fails the calling test by throwing when the task has not finished within `timeout` (scaled).
template <typename T>
T run(QCoro::Task<T>&& task, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    struct Outcome {
        std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> value;
        std::exception_ptr error;
    };
    auto outcome = std::make_shared<Outcome>();
    [](QCoro::Task<T> awaited, std::shared_ptr<Outcome> into) -> QCoro::Task<void> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(awaited);
                into->value.emplace(true);
            } else {
                into->value.emplace(co_await std::move(awaited));
            }
        } catch (...) {
            into->error = std::current_exception();
        }
    }(std::move(task), outcome);
    if (!waitUntil([&outcome] { return outcome->value || outcome->error; }, timeout)) {
        throw std::runtime_error("the task did not finish in time");
    }
    if (outcome->error) {
        std::rethrow_exception(outcome->error);
    }
    if constexpr (!std::is_void_v<T>) {
        return std::move(*outcome->value);
    }
}

// The error of type `Error` that `task` ends with, or nullopt when it succeeds.
template <typename Error, typename T>
std::optional<Error> failureOf(QCoro::Task<T>&& task) {
    try {
        run(std::move(task));
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

// The description of the error `task` ends with; empty when it succeeds.
template <typename T>
QString errorText(QCoro::Task<T>&& task) {
    try {
        run(std::move(task));
    } catch (const VantrelError& error) {
        return error.description();
    }
    return {};
}

// The result of `task` or the error of type `Error` it ends with.
template <typename Error, typename T>
std::variant<T, Error> outcomeOf(QCoro::Task<T>&& task) {
    try {
        return run(std::move(task));
    } catch (const Error& error) {
        return error;
    }
}

} // namespace AsyncTest

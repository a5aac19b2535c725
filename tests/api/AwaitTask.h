#pragma once

#include "support/AsyncTest.h"

#include <exception>
#include <optional>
#include <stdexcept>

// Runs `task` to its end on the event loop and returns its result or rethrows its error.
// QCoro 0.8's waitFor (behind AsyncTest::run) never returns when the task throws, and the clients
// under test throw by design.
template <typename T>
T awaitTask(QCoro::Task<T> task) {
    std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> result;
    std::exception_ptr failure;
    bool done = false;
    [](QCoro::Task<T> awaited, decltype(result)* value, std::exception_ptr* error,
       bool* finished) -> QCoro::Task<void> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(awaited);
                value->emplace(true);
            } else {
                value->emplace(co_await std::move(awaited));
            }
        } catch (...) {
            *error = std::current_exception();
        }
        *finished = true;
    }(std::move(task), &result, &failure, &done);
    if (!AsyncTest::waitUntil([&] { return done; }, std::chrono::seconds(30))) {
        throw std::runtime_error("the task did not finish");
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    if constexpr (!std::is_void_v<T>) {
        return std::move(*result);
    }
}

#pragma once

#include "support/AsyncTest.h"

#include <optional>
#include <ostream>
#include <string>
#include <variant>

// The error of type `Error` that `task` ends with, or nullopt when it succeeds.
template <typename Error, typename T>
std::optional<Error> failureOf(QCoro::Task<T>&& task) {
    try {
        AsyncTest::run(std::move(task));
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

// The result of `task` or the error of type `Error` it ends with.
template <typename Error, typename T>
std::variant<T, Error> outcomeOf(QCoro::Task<T>&& task) {
    try {
        return AsyncTest::run(std::move(task));
    } catch (const Error& error) {
        return error;
    }
}

// Table rows carry a `name` that names their test case and stands for them in messages; a test
// file in an unnamed namespace brings this in with `using ::PrintTo;`.
template <typename Row>
requires requires(const Row& row) {
    row.name;
}
void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}
inline const auto rowName = [](const auto& info) { return std::string(info.param.name); };

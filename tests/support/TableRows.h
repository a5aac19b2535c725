#pragma once

#include <ostream>
#include <string>

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

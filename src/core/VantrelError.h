#pragma once

#include <QString>

#include <exception>

// Base of every error the application can show. Each component has its own subclass with a
// small, fixed set of cases; `description()` is the user-facing text. Errors that come from the
// platform (file system, process launch, D-Bus) are carried by PlatformError with the platform's
// own words.
class VantrelError : public std::exception {
public:
    VantrelError() = default;
    VantrelError(const VantrelError&) = default;
    VantrelError& operator=(const VantrelError&) = default;
    ~VantrelError() override = default;

    virtual QString description() const = 0;

    // Deliberately generic: the text can embed paths or server answers, and `what()` is the one
    // string a crash handler or a stray log line would print.
    const char* what() const noexcept override { return "Vantrel error"; }

    // The user-facing text of whatever an operation threw.
    static QString describe(const std::exception_ptr& error);
};

#pragma once

#include "core/VantrelError.h"

// A failure reported by the operating system or a library, passed through with its own text
// ("No such file or directory", "Permission denied", a D-Bus error message, …).
class PlatformError : public VantrelError {
public:
    explicit PlatformError(QString message)
        : m_message(std::move(message)) {}

    QString description() const override { return m_message; }

    // "<what>: <strerror(errnum)>", for failures of POSIX calls.
    static PlatformError fromErrno(const QString& what, int errnum);

private:
    QString m_message;
};

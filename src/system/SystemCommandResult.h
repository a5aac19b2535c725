#pragma once

#include <QString>

// The outcome of one system command.
struct SystemCommandResult {
    // The exit code of a normal exit, or the number of the signal that ended the process.
    qint32 exitStatus = 0;
    // Everything written to each stream, decoded as UTF-8; empty when it was not valid UTF-8.
    QString standardOutput;
    QString standardError;

    friend bool operator==(const SystemCommandResult&, const SystemCommandResult&) = default;
};

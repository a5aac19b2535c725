#pragma once

#include "system/SystemCommandResult.h"

#include <QString>
#include <QStringList>

// Runs a short system command to completion. Synchronous: the caller waits for the exit, so it
// is meant for commands that answer at once. Throws PlatformError only when the command cannot
// be started; a non-zero exit is a result, not a failure.
class SystemCommandRunning {
public:
    virtual ~SystemCommandRunning() = default;
    virtual SystemCommandResult run(const QString& executable, const QStringList& arguments) = 0;
};

#pragma once

#include "system/SystemCommandResult.h"

#include <QCoroTask>
#include <QString>
#include <QStringList>

// Runs a short system command to completion while the caller's event loop keeps turning. Throws
// PlatformError when the command cannot be started or does not end within the runner's bound; a
// non-zero exit is a result, not a failure.
class SystemCommandRunning {
public:
    virtual ~SystemCommandRunning() = default;
    virtual QCoro::Task<SystemCommandResult> run(QString executable, QStringList arguments) = 0;
};

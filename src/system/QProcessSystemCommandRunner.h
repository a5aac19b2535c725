#pragma once

#include "system/SystemCommandRunning.h"

// Runs the executable directly (no shell) with the application's environment and standard input,
// collecting standard output and standard error through separate pipes.
class QProcessSystemCommandRunner : public SystemCommandRunning {
public:
    SystemCommandResult run(const QString& executable, const QStringList& arguments) override;
};

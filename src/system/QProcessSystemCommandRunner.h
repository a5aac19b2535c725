#pragma once

#include "system/SystemCommandRunning.h"

#include <chrono>

// Runs the executable directly (no shell) with the application's environment and standard input,
// collecting standard output and standard error through separate pipes. A command still running
// after `bound` is killed and reported: it stands for one that answers at once.
class QProcessSystemCommandRunner : public SystemCommandRunning {
public:
    static constexpr std::chrono::milliseconds defaultBound{10000};

    explicit QProcessSystemCommandRunner(std::chrono::milliseconds bound = defaultBound)
        : m_bound(bound) {}

    QCoro::Task<SystemCommandResult> run(QString executable, QStringList arguments) override;

private:
    std::chrono::milliseconds m_bound;
};

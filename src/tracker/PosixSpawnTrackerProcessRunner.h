#pragma once

#include "tracker/TrackerProcessRunning.h"

#include <QByteArray>

#include <chrono>

// Starts the tracker helper with posix_spawn and watches it from the GUI thread's event loop
// (see SpawnedProcess). Holds nothing but its limits: one instance serves the whole application,
// and a status command in flight does not need the runner to stay alive.
class PosixSpawnTrackerProcessRunner : public TrackerProcessRunning {
public:
    struct Limits {
        // A status command that has not answered by then is killed and reported as hanging.
        std::chrono::milliseconds statusTime{std::chrono::seconds(30)};
        // A report is a few kilobytes. Anything near a megabyte is a runaway helper, and decoding
        // it would hold the GUI thread for tens of milliseconds.
        qsizetype statusOutputBytes = 1024 * 1024;
        // How long a helper that is asked to stop may take before it is killed.
        std::chrono::milliseconds terminationGrace{std::chrono::seconds(5)};
    };

    PosixSpawnTrackerProcessRunner();
    explicit PosixSpawnTrackerProcessRunner(const Limits& limits);

    std::unique_ptr<TrackerProcessHandling> startHelper(const LaunchConfiguration& configuration,
                                                        ExitHandler onExit) override;
    QCoro::Task<TrackerStatus> runStatus(QString executableURL, QString configURL) override;

    // How much of a failed status command's standard error its message keeps.
    static constexpr qsizetype errorOutputLimit = 512;

    // The message of a failed status command: its standard error (at most errorOutputLimit
    // bytes) as text, or "No error output" when those bytes are not valid UTF-8.
    static QString errorMessage(const QByteArray& standardError);

    // A regular file that the current user may execute.
    static bool isExecutableFile(const QString& path);

private:
    Limits m_limits;
};

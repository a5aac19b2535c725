#pragma once

#include "tracker/TrackerProcessRunning.h"

#include <QByteArray>

// Starts the tracker helper with posix_spawn and watches it from the GUI thread's event loop
// (see SpawnedProcess). Holds nothing but its output ceiling: one instance serves the whole
// application, and a status command in flight does not need the runner to stay alive.
class ForkExecTrackerProcessRunner : public TrackerProcessRunning {
public:
    // A report is a few kilobytes and is read in full however large it is, up to this ceiling:
    // only a runaway helper gets there, and reading on would exhaust memory.
    static constexpr qsizetype defaultStatusOutputCeiling = qsizetype(64) * 1024 * 1024;

    explicit ForkExecTrackerProcessRunner(
        qsizetype statusOutputCeiling = defaultStatusOutputCeiling);

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
    qsizetype m_statusOutputCeiling;
};

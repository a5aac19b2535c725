#pragma once

#include "tracker/TrackerProcessRunning.h"

#include <QByteArray>

// Starts the tracker helper with fork and exec and watches it from the GUI thread's event loop
// (see SpawnedProcess). One instance serves the whole application, and a status command in flight
// does not need the runner to stay alive.
//
// The kernel ends a helper with us, unless it ignores SIGTERM and has no input to wait for. Such a
// helper outlives us and then still holds the runner's claim on the log folder: an exclusive lock
// on one open description of it, shared by every helper this runner starts (they inherit it as
// descriptor 3). Another runner, in the next run of the application, finds the folder locked and
// starts no second helper beside it.
class ForkExecTrackerProcessRunner : public TrackerProcessRunning {
public:
    // A report is a few kilobytes and is read in full however large it is, up to this ceiling:
    // only a runaway helper gets there, and reading on would exhaust memory.
    static constexpr qsizetype defaultStatusOutputCeiling = qsizetype(64) * 1024 * 1024;

    // A log longer than this is set aside as "<log>.1" when the next helper starts.
    static constexpr qint64 defaultLogRotationSize = qint64(16) * 1024 * 1024;

    explicit ForkExecTrackerProcessRunner(
        qsizetype statusOutputCeiling = defaultStatusOutputCeiling,
        qint64 logRotationSize = defaultLogRotationSize);
    ~ForkExecTrackerProcessRunner() override;
    ForkExecTrackerProcessRunner(const ForkExecTrackerProcessRunner&) = delete;
    ForkExecTrackerProcessRunner& operator=(const ForkExecTrackerProcessRunner&) = delete;

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
    // Takes the claim on the log folder open at `directory`, unless this runner holds it already.
    void claimLogDirectory(int directory, const QString& path);

    qsizetype m_statusOutputCeiling;
    qint64 m_logRotationSize;
    int m_claim = -1;
};

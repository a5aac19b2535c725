#pragma once

#include "tracker/SpawnedProcess.h"
#include "tracker/TrackerProcessHandling.h"

#include <QByteArray>
#include <QPointer>

// A helper started by ForkExecTrackerProcessRunner: its process and the write end of its
// standard-input pipe. The log files need no handle of ours: the helper holds its own
// descriptors, opened for appending.
class ForkExecTrackerProcessHandle : public TrackerProcessHandling {
public:
    // Takes ownership of `inputDescriptor`, the write end of the helper's standard input.
    ForkExecTrackerProcessHandle(QPointer<SpawnedProcess> process, int inputDescriptor);
    ~ForkExecTrackerProcessHandle() override;

    ForkExecTrackerProcessHandle(const ForkExecTrackerProcessHandle&) = delete;
    ForkExecTrackerProcessHandle& operator=(const ForkExecTrackerProcessHandle&) = delete;

    bool isRunning() const override;
    void terminate() override;

    // Writes what fits into the pipe now without blocking. A helper that has already closed its
    // standard input makes this return false; it never raises SIGPIPE in the application.
    bool writeInput(const QByteArray& bytes);

private:
    void closeInput();

    QPointer<SpawnedProcess> m_process;
    int m_inputDescriptor;
};

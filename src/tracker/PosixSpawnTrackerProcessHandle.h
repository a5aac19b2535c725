#pragma once

#include "tracker/SpawnedProcess.h"
#include "tracker/TrackerProcessHandling.h"

#include <QByteArray>
#include <QPointer>

// A helper started by PosixSpawnTrackerProcessRunner: its process and the write end of its
// standard-input pipe. The log files need no handle of ours: the helper holds its own
// descriptors, opened for appending.
class PosixSpawnTrackerProcessHandle : public TrackerProcessHandling {
public:
    // Takes ownership of `inputDescriptor`, the write end of the helper's standard input.
    PosixSpawnTrackerProcessHandle(QPointer<SpawnedProcess> process, int inputDescriptor);
    ~PosixSpawnTrackerProcessHandle() override;

    PosixSpawnTrackerProcessHandle(const PosixSpawnTrackerProcessHandle&) = delete;
    PosixSpawnTrackerProcessHandle& operator=(const PosixSpawnTrackerProcessHandle&) = delete;

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

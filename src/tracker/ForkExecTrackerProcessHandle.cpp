#include "tracker/ForkExecTrackerProcessHandle.h"

#include "tracker/SpawnedProcess.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

ForkExecTrackerProcessHandle::ForkExecTrackerProcessHandle(QPointer<SpawnedProcess> process,
                                                           int inputDescriptor)
    : m_process(std::move(process))
    , m_inputDescriptor(inputDescriptor) {}

ForkExecTrackerProcessHandle::~ForkExecTrackerProcessHandle() {
    // Releasing a handle closes the helper's standard input and nothing more: the process object
    // reaps the helper and reports its exit on its own.
    closeInput();
}

bool ForkExecTrackerProcessHandle::isRunning() const {
    return m_process && m_process->isRunning();
}

void ForkExecTrackerProcessHandle::terminate() {
    closeInput();
    if (isRunning()) {
        m_process->sendSignal(SIGTERM);
    }
}

bool ForkExecTrackerProcessHandle::writeInput(const QByteArray& bytes) {
    if (m_inputDescriptor < 0) {
        return false;
    }
    // A write to a pipe without a reader raises SIGPIPE in the writing thread. Blocking it here,
    // and taking back the one this write raised, spares the whole application a process-wide
    // SIG_IGN.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigset_t previousMask;
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &previousMask);
    sigset_t pendingBefore;
    sigpending(&pendingBefore);

    ssize_t written = 0;
    do {
        written = ::write(m_inputDescriptor, bytes.constData(), static_cast<size_t>(bytes.size()));
    } while (written < 0 && errno == EINTR);
    const bool failedWithBrokenPipe = written < 0 && errno == EPIPE;

    if (failedWithBrokenPipe && !sigismember(&pendingBefore, SIGPIPE)) {
        const timespec immediately{0, 0};
        while (sigtimedwait(&brokenPipe, nullptr, &immediately) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    return written == bytes.size();
}

void ForkExecTrackerProcessHandle::closeInput() {
    if (m_inputDescriptor >= 0) {
        ::close(m_inputDescriptor);
        m_inputDescriptor = -1;
    }
}

#include "tracker/StatusCommandProcess.h"

#include "core/PlatformError.h"
#include "tracker/SpawnedProcess.h"

#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype readChunk = 64 * 1024;
// A command that writes as fast as we read must not hold the GUI thread in one activation; the
// notifier fires again for whatever is left.
constexpr int readsPerActivation = 4;

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe openPipe() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw PlatformError::fromErrno(QStringLiteral("Could not create a pipe"), errno);
    }
    // Our end never blocks: the event loop reads what is there and comes back for more.
    fcntl(fds[0], F_SETFL, fcntl(fds[0], F_GETFL) | O_NONBLOCK);
    return {fds[0], fds[1]};
}

void closeDescriptor(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

} // namespace

StatusCommandProcess::StatusCommandProcess(const QString& executable, const QStringList& arguments,
                                           const Limits& limits)
    : m_limits(limits) {
    Pipe output = openPipe();
    Pipe error;
    try {
        error = openPipe();
        m_process = SpawnedProcess::spawn(executable, arguments, {-1, output.write, error.write});
    } catch (...) {
        closeDescriptor(output.read);
        closeDescriptor(output.write);
        closeDescriptor(error.read);
        closeDescriptor(error.write);
        throw;
    }
    // Only the child may hold the write ends, or the pipes would never reach their end.
    closeDescriptor(output.write);
    closeDescriptor(error.write);

    connect(m_process, &SpawnedProcess::exited, this, [this](qint32 status) {
        m_exited = true;
        m_exitStatus = status;
        finishIfDone();
    });
    m_outputChannel.fd = output.read;
    m_errorChannel.fd = error.read;
    m_outputChannel.notifier = new QSocketNotifier(output.read, QSocketNotifier::Read, this);
    m_errorChannel.notifier = new QSocketNotifier(error.read, QSocketNotifier::Read, this);
    connect(m_outputChannel.notifier, &QSocketNotifier::activated, this, [this] { drainOutput(); });
    connect(m_errorChannel.notifier, &QSocketNotifier::activated, this, [this] { drainError(); });
}

StatusCommandProcess::~StatusCommandProcess() {
    // A command abandoned while running keeps running and is reaped by its SpawnedProcess; it
    // only loses its pipes.
    close(m_outputChannel);
    close(m_errorChannel);
}

bool StatusCommandProcess::isFinished() const {
    return m_failure != Failure::none ||
           (m_exited && m_outputChannel.fd < 0 && m_errorChannel.fd < 0);
}

void StatusCommandProcess::drainOutput() {
    const bool open = drain(m_outputChannel, [this](QByteArrayView bytes) {
        if (bytes.size() > m_limits.output - m_outputSize) {
            giveUp(Failure::outputTooLarge);
            return false;
        }
        m_outputSize += bytes.size();
        // Small reads fill up the last chunk rather than each keeping an allocation of its own.
        if (!m_output.isEmpty() && m_output.last().size() + bytes.size() <= readChunk) {
            m_output.last().append(bytes);
        } else {
            m_output.append(bytes.toByteArray());
        }
        return true;
    });
    if (!open) {
        finishIfDone();
    }
}

void StatusCommandProcess::drainError() {
    const bool open = drain(m_errorChannel, [this](QByteArrayView bytes) {
        // Beyond the limit the bytes are read only to keep the command from blocking.
        m_error.append(bytes.first(std::min(bytes.size(), m_limits.error - m_error.size())));
        return true;
    });
    if (!open) {
        finishIfDone();
    }
}

template <typename Consume>
bool StatusCommandProcess::drain(Channel& channel, Consume consume) {
    char buffer[readChunk];
    for (int reads = 0; channel.fd >= 0 && reads < readsPerActivation; ++reads) {
        const ssize_t count = ::read(channel.fd, buffer, sizeof buffer);
        if (count > 0) {
            if (!consume(QByteArrayView(buffer, count))) {
                return true; // given up: `finished` has been emitted, and this may be gone
            }
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return true;
        }
        close(channel); // end of output, or an error that ends it just the same
    }
    return channel.fd >= 0;
}

void StatusCommandProcess::close(Channel& channel) {
    if (channel.notifier) {
        channel.notifier->setEnabled(false);
        channel.notifier->deleteLater();
        channel.notifier = nullptr;
    }
    closeDescriptor(channel.fd);
}

void StatusCommandProcess::giveUp(Failure failure) {
    m_failure = failure;
    close(m_outputChannel);
    close(m_errorChannel);
    finishIfDone();
}

void StatusCommandProcess::finishIfDone() {
    if (isFinished() && !m_finishedEmitted) {
        m_finishedEmitted = true;
        Q_EMIT finished();
    }
}

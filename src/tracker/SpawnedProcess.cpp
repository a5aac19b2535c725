#include "tracker/SpawnedProcess.h"

#include "core/PlatformError.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// glibc 2.36 declares the pidfd calls without C linkage for C++ callers.
extern "C" {
#include <sys/pidfd.h>
}

extern char** environ;

namespace {

// Where pidfds are unavailable (old kernels, restrictive seccomp profiles) the exit is noticed by
// polling instead; the interval only bounds how late an exit is reported.
constexpr int exitPollIntervalMilliseconds = 50;

// posix_spawn's bookkeeping, released on every path out of spawn().
class SpawnSettings {
public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

} // namespace

SpawnedProcess* SpawnedProcess::spawn(const QString& executable, const QStringList& arguments,
                                      const StandardStreams& streams) {
    std::vector<QByteArray> encoded;
    encoded.reserve(static_cast<std::size_t>(arguments.size()) + 1);
    encoded.push_back(QFile::encodeName(executable));
    for (const QString& argument : arguments) {
        encoded.push_back(argument.toUtf8());
    }
    std::vector<char*> argv;
    for (QByteArray& item : encoded) {
        argv.push_back(item.data());
    }
    argv.push_back(nullptr);

    SpawnSettings settings;
    const int targets[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    const int sources[] = {streams.input, streams.output, streams.error};
    for (int i = 0; i < 3; ++i) {
        if (sources[i] >= 0) {
            posix_spawn_file_actions_adddup2(&settings.actions, sources[i], targets[i]);
        }
    }
    // Nothing of ours leaks into the helper: not another helper's key pipe, not a log file.
    posix_spawn_file_actions_addclosefrom_np(&settings.actions, STDERR_FILENO + 1);

    // The application may ignore SIGPIPE or block signals on some thread; the helper starts
    // with the defaults a shell would give it.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigset_t unblocked;
    sigemptyset(&unblocked);
    posix_spawnattr_setsigdefault(&settings.attributes, &defaults);
    posix_spawnattr_setsigmask(&settings.attributes, &unblocked);
    posix_spawnattr_setflags(&settings.attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    pid_t pid = 0;
    const int error = posix_spawn(&pid, argv.front(), &settings.actions, &settings.attributes,
                                  argv.data(), environ);
    if (error != 0) {
        throw PlatformError::fromErrno(QStringLiteral("The tracker helper at ") + executable +
                                           QStringLiteral(" could not be started"),
                                       error);
    }
    return new SpawnedProcess(pid, pidfd_open(pid, 0));
}

SpawnedProcess::SpawnedProcess(pid_t pid, int pidfd)
    : m_pid(pid)
    , m_pidfd(pidfd) {
    if (m_pidfd >= 0) {
        m_notifier = new QSocketNotifier(m_pidfd, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &SpawnedProcess::reapIfExited);
    } else {
        m_pollTimer = new QTimer(this);
        connect(m_pollTimer, &QTimer::timeout, this, &SpawnedProcess::reapIfExited);
        m_pollTimer->start(exitPollIntervalMilliseconds);
    }
}

SpawnedProcess::~SpawnedProcess() {
    if (m_pidfd >= 0) {
        ::close(m_pidfd);
    }
}

bool SpawnedProcess::isRunning() const {
    if (m_exited) {
        return false;
    }
    siginfo_t info{};
    // WNOWAIT leaves the child to reapIfExited(), which reports it.
    if (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
        return false;
    }
    return info.si_pid == 0;
}

void SpawnedProcess::sendSignal(int signalNumber) {
    if (m_exited) {
        return;
    }
    if (m_pidfd >= 0) {
        pidfd_send_signal(m_pidfd, signalNumber, nullptr, 0);
    } else {
        ::kill(m_pid, signalNumber);
    }
}

void SpawnedProcess::reapIfExited() {
    if (m_exited) {
        return;
    }
    siginfo_t info{};
    int result = 0;
    do {
        result = waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG);
    } while (result != 0 && errno == EINTR);
    if (result == 0 && info.si_pid == 0) {
        return; // still running
    }
    m_exited = true;
    // A child ended by a signal reports the signal's number; ECHILD (someone else reaped it)
    // leaves no status to report.
    m_exitStatus = result == 0 ? info.si_status : -1;
    if (m_notifier) {
        m_notifier->setEnabled(false);
    }
    if (m_pollTimer) {
        m_pollTimer->stop();
    }
    deleteLater();
    Q_EMIT exited(m_exitStatus);
}

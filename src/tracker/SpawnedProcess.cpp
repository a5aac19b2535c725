#include "tracker/SpawnedProcess.h"

#include "core/PlatformError.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
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

// Everything the child needs, prepared before the fork. The child is a vfork child: it borrows
// our memory while we wait for its exec, as posix_spawn's would, which spares copying the page
// tables of a large process. So between vfork and exec it calls nothing but async-signal-safe
// functions, allocates nothing, takes no lock and writes nothing but its own stack.
struct ChildPlan {
    char* const* argv;
    char* const* envp;
    int sources[4];
    pid_t parent;
    int reportFd;          // the write end of the pipe that carries a failed exec's errno
    int descriptorCeiling; // for closing descriptors one by one where close_range is missing
};

void closeFrom(int first, int keep, int ceiling) {
    if (first <= keep - 1) {
        if (syscall(SYS_close_range, first, keep - 1, 0) != 0) {
            for (int fd = first; fd < keep; ++fd) {
                ::close(fd);
            }
        }
    }
    if (syscall(SYS_close_range, keep + 1, ~0U, 0) != 0) {
        for (int fd = keep + 1; fd < ceiling; ++fd) {
            ::close(fd);
        }
    }
}

[[noreturn]] void failChild(int reportFd) {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(reportFd, &error, sizeof error);
    _exit(127);
}

[[noreturn]] void runChild(const ChildPlan& plan) {
    // Handlers are the application's and must not run here. Ignored signals stay ignored across
    // exec as a shell would leave them, except SIGPIPE: a child whose reader has gone should end.
    for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
        struct sigaction current {};
        if (sigaction(signalNumber, nullptr, &current) != 0) {
            continue;
        }
        if (current.sa_handler != SIG_IGN || signalNumber == SIGPIPE) {
            struct sigaction defaults {};
            defaults.sa_handler = SIG_DFL;
            sigaction(signalNumber, &defaults, nullptr);
        }
    }
    // Our death ends the child. Should we have died before this call, the signal would never
    // come, so the child checks that the parent is still the one that forked it.
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != plan.parent) {
        _exit(127);
    }
    // Above every target first, so that no dup2 overwrites a source still to be copied.
    const int reportFd = fcntl(plan.reportFd, F_DUPFD_CLOEXEC, 4);
    if (reportFd < 0) {
        _exit(127);
    }
    int moved[4];
    for (int i = 0; i < 4; ++i) {
        moved[i] = plan.sources[i] < 0 ? -1 : fcntl(plan.sources[i], F_DUPFD, 4);
        if (plan.sources[i] >= 0 && moved[i] < 0) {
            failChild(reportFd);
        }
    }
    for (int i = 0; i < 4; ++i) {
        if (moved[i] >= 0 && dup2(moved[i], i) < 0) {
            failChild(reportFd);
        }
    }
    // Nothing of ours leaks into the child: not another helper's key pipe, not a log file.
    closeFrom(moved[3] >= 0 ? 4 : 3, reportFd, plan.descriptorCeiling);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execve(plan.argv[0], plan.argv, plan.envp);
    failChild(reportFd);
}

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

    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        throw PlatformError::fromErrno(QStringLiteral("Could not create a pipe"), errno);
    }
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    ChildPlan plan{};
    plan.argv = argv.data();
    plan.envp = environ;
    plan.sources[0] = streams.input;
    plan.sources[1] = streams.output;
    plan.sources[2] = streams.error;
    plan.sources[3] = streams.extra;
    plan.parent = getpid();
    plan.reportFd = report[1];
    plan.descriptorCeiling = static_cast<int>(std::min<rlim_t>(descriptors.rlim_cur, 1 << 20));

    // Blocked until the child has put the defaults back, so that no handler of ours runs in it,
    // on our memory.
    sigset_t all;
    sigfillset(&all);
    sigset_t previousMask;
    pthread_sigmask(SIG_SETMASK, &all, &previousMask);
    const pid_t pid = vfork();
    if (pid == 0) {
        runChild(plan);
    }
    const int forkError = errno;
    pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::close(report[1]);
    if (pid < 0) {
        ::close(report[0]);
        throw PlatformError::fromErrno(QStringLiteral("The tracker helper at ") + executable +
                                           QStringLiteral(" could not be started"),
                                       forkError);
    }

    // vfork returns once the child has exec'd or exited; the pipe is then closed, or holds the
    // errno of whatever failed.
    int childError = 0;
    ssize_t count = 0;
    do {
        count = ::read(report[0], &childError, sizeof childError);
    } while (count < 0 && errno == EINTR);
    ::close(report[0]);
    if (count == sizeof childError) {
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        throw PlatformError::fromErrno(QStringLiteral("The tracker helper at ") + executable +
                                           QStringLiteral(" could not be started"),
                                       childError);
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

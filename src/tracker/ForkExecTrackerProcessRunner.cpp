#include "tracker/ForkExecTrackerProcessRunner.h"

#include "core/PlatformError.h"
#include "tracker/ForkExecTrackerProcessHandle.h"
#include "tracker/SpawnedProcess.h"
#include "tracker/StatusCommandProcess.h"
#include "tracker/TrackerSupervisorError.h"

#include <QCoroSignal>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QStringDecoder>
#include <QtConcurrentRun>

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// A descriptor closed when it goes out of scope unless released.
class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int fd = -1)
        : m_fd(fd) {}
    ~OwnedDescriptor() { reset(); }
    OwnedDescriptor(OwnedDescriptor&& other) noexcept
        : m_fd(other.release()) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
        reset();
        m_fd = other.release();
        return *this;
    }

    int get() const { return m_fd; }
    int release() { return std::exchange(m_fd, -1); }
    void reset() {
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }

private:
    int m_fd;
};

[[noreturn]] void fail(const QString& what, const QString& path, int error = errno) {
    throw PlatformError::fromErrno(what + path, error);
}

// Creates what is missing of `directory` as private folders and opens it. The folder itself
// (the log folder, ours alone) is made private if it was not; existing folders above it are
// left as they are.
OwnedDescriptor openPrivateDirectory(const QString& directory) {
    const QByteArray encoded = QFile::encodeName(directory);
    for (qsizetype slash = encoded.indexOf('/', 1);; slash = encoded.indexOf('/', slash + 1)) {
        const QByteArray prefix = slash == -1 ? encoded : encoded.left(slash);
        if (::mkdir(prefix.constData(), 0700) != 0 && errno != EEXIST) {
            fail(QStringLiteral("Could not create the directory "), directory);
        }
        if (slash == -1) {
            break;
        }
    }
    OwnedDescriptor fd(::open(encoded.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat info {};
    if (fd.get() < 0 || ::fstat(fd.get(), &info) != 0) {
        fail(QStringLiteral("Could not open the directory "), directory);
    }
    if ((info.st_mode & 077) != 0 && ::fchmod(fd.get(), info.st_mode & 0700) != 0) {
        fail(QStringLiteral("Could not make the directory private: "), directory);
    }
    return fd;
}

// Opens a log for appending, created private; a log past `rotationSize` first moves to
// "<log>.1", replacing the one before, so that each log holds at most two generations.
OwnedDescriptor openLog(const QString& path, qint64 rotationSize) {
    const QByteArray encoded = QFile::encodeName(path);
    // Non-blocking so that a FIFO put in the log's place fails rather than hold the GUI thread.
    const auto open = [&] {
        OwnedDescriptor fd(::open(encoded.constData(),
                                  O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                                  0600));
        if (fd.get() < 0) {
            fail(QStringLiteral("Could not open the log file "), path);
        }
        return fd;
    };
    OwnedDescriptor fd = open();
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        fail(QStringLiteral("Could not open the log file "), path);
    }
    // Before the rotation, so that the older generation is private too.
    if (S_ISREG(info.st_mode) && (info.st_mode & 077) != 0 && ::fchmod(fd.get(), 0600) != 0) {
        fail(QStringLiteral("Could not make the log file private: "), path);
    }
    if (S_ISREG(info.st_mode) && info.st_size > rotationSize) {
        if (::rename(encoded.constData(), (encoded + ".1").constData()) != 0) {
            fail(QStringLiteral("Could not set aside the log file "), path);
        }
        fd = open(); // created 0600, which no umask loosens
    }
    fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    return fd;
}

bool sameFile(int first, int second) {
    struct stat a {};
    struct stat b {};
    return first >= 0 && second >= 0 && ::fstat(first, &a) == 0 && ::fstat(second, &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Below this a report decodes in well under a millisecond, on the GUI thread.
constexpr qsizetype decodeInPlaceLimit = 256 * 1024;

// A report of megabytes takes tens of milliseconds to decode, so it is decoded on a pool thread
// while the GUI thread keeps turning. The decoder is a pure function of the bytes it is given and
// touches nothing else; the ordinary few-kilobyte report never starts that thread at all.
QByteArray joined(const QList<QByteArray>& chunks) {
    return chunks.size() == 1 ? chunks.first() : chunks.join();
}

QCoro::Task<TrackerStatus> decodeAwayFromTheGuiThread(QList<QByteArray> chunks) {
    qsizetype size = 0;
    for (const QByteArray& chunk : chunks) {
        size += chunk.size();
    }
    if (size < decodeInPlaceLimit) {
        co_return TrackerStatus::decode(joined(chunks));
    }
    struct Outcome {
        std::optional<TrackerStatus> status;
        std::exception_ptr error;
    };
    QFutureWatcher<Outcome> watcher;
    // Joining megabytes is page faults again: that too happens on the pool thread.
    watcher.setFuture(QtConcurrent::run([chunks = std::move(chunks)] {
        Outcome result;
        try {
            result.status = TrackerStatus::decode(joined(chunks));
        } catch (...) {
            result.error = std::current_exception();
        }
        return result;
    }));
    // The watcher hears of the end through an event on this thread, so it cannot be missed
    // between this check and the suspension.
    if (!watcher.isFinished()) {
        co_await qCoro(&watcher, &QFutureWatcher<Outcome>::finished);
    }
    Outcome outcome = watcher.result();
    if (outcome.error) {
        std::rethrow_exception(outcome.error);
    }
    co_return std::move(*outcome.status);
}

} // namespace

ForkExecTrackerProcessRunner::ForkExecTrackerProcessRunner(qsizetype statusOutputCeiling,
                                                           qint64 logRotationSize)
    : m_statusOutputCeiling(statusOutputCeiling)
    , m_logRotationSize(logRotationSize) {}

ForkExecTrackerProcessRunner::~ForkExecTrackerProcessRunner() {
    if (m_claim >= 0) {
        ::close(m_claim);
    }
}

void ForkExecTrackerProcessRunner::claimLogDirectory(int directory, const QString& path) {
    if (sameFile(directory, m_claim)) {
        return;
    }
    if (::flock(directory, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw PlatformError(QStringLiteral("A tracker helper left over from an earlier run is "
                                               "still running and holds ") +
                                path + QStringLiteral("; a second one was not started."));
        }
        fail(QStringLiteral("Could not lock the directory "), path);
    }
    if (m_claim >= 0) {
        ::close(m_claim);
    }
    m_claim = fcntl(directory, F_DUPFD_CLOEXEC, 0);
}

bool ForkExecTrackerProcessRunner::isExecutableFile(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    struct stat info {};
    return !path.isEmpty() && ::stat(encoded.constData(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::faccessat(AT_FDCWD, encoded.constData(), X_OK, AT_EACCESS) == 0;
}

QString ForkExecTrackerProcessRunner::errorMessage(const QByteArray& standardError) {
    // Keep a byte-order mark as a character rather than dropping it: the text is the helper's
    // own bytes.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    const QString text = decoder.decode(standardError.left(errorOutputLimit));
    if (decoder.hasError()) {
        return QStringLiteral("No error output");
    }
    return text;
}

std::unique_ptr<TrackerProcessHandling>
ForkExecTrackerProcessRunner::startHelper(const LaunchConfiguration& configuration,
                                          ExitHandler onExit) {
    if (!isExecutableFile(configuration.executableURL)) {
        throw TrackerSupervisorError::helperMissing(configuration.executableURL);
    }
    const QString logDirectory = QFileInfo(configuration.stdoutURL).absolutePath();
    claimLogDirectory(openPrivateDirectory(logDirectory).get(), logDirectory);
    const QString errorDirectory = QFileInfo(configuration.stderrURL).absolutePath();
    if (errorDirectory != logDirectory) {
        openPrivateDirectory(errorDirectory);
    }
    OwnedDescriptor output = openLog(configuration.stdoutURL, m_logRotationSize);
    OwnedDescriptor error = openLog(configuration.stderrURL, m_logRotationSize);

    int input[2];
    if (pipe2(input, O_CLOEXEC) != 0) {
        throw PlatformError::fromErrno(QStringLiteral("Could not create a pipe"), errno);
    }
    OwnedDescriptor inputRead(input[0]);
    OwnedDescriptor inputWrite(input[1]);
    // The key is far smaller than a pipe's buffer; never let a helper that does not read it
    // hold the GUI thread.
    fcntl(inputWrite.get(), F_SETFL, fcntl(inputWrite.get(), F_GETFL) | O_NONBLOCK);

    const QStringList arguments{QStringLiteral("--config"),      configuration.configURL,
                                QStringLiteral("run"),           QStringLiteral("--api-key-stdin"),
                                QStringLiteral("--device-name"), configuration.deviceName};
    SpawnedProcess* process =
        SpawnedProcess::spawn(configuration.executableURL, arguments,
                              {inputRead.get(), output.get(), error.get(), m_claim});
    // From here on only the helper holds the read end and the log files, so a helper that
    // closes its standard input makes the key write fail rather than fill a pipe nobody reads.
    inputRead.reset();
    output.reset();
    error.reset();
    QObject::connect(process, &SpawnedProcess::exited, process,
                     [onExit = std::move(onExit)](qint32 status) { onExit(status); });

    auto handle =
        std::make_unique<ForkExecTrackerProcessHandle>(QPointer(process), inputWrite.release());
    QByteArray keyLine = configuration.apiKey.toUtf8();
    keyLine.append('\n');
    // A helper that has already closed its standard input simply does not get the key; its
    // exit is reported as usual.
    handle->writeInput(keyLine);
    keyLine.fill('\0');
    return handle;
}

QCoro::Task<TrackerStatus> ForkExecTrackerProcessRunner::runStatus(QString executableURL,
                                                                   QString configURL) {
    // Touches nothing of the runner after this: the command may outlive it.
    const qsizetype ceiling = m_statusOutputCeiling;
    if (!isExecutableFile(executableURL)) {
        throw TrackerSupervisorError::helperMissing(executableURL);
    }
    const QStringList arguments{QStringLiteral("--config"), configURL, QStringLiteral("status"),
                                QStringLiteral("--json")};
    auto command = std::make_unique<StatusCommandProcess>(
        executableURL, arguments, StatusCommandProcess::Limits{ceiling, errorOutputLimit});
    if (!command->isFinished()) {
        co_await qCoro(command.get(), &StatusCommandProcess::finished);
    }
    if (command->failure() == StatusCommandProcess::Failure::outputTooLarge) {
        throw PlatformError(QStringLiteral("The tracker helper's status report is larger than "
                                           "%1 MB; it was not read.")
                                .arg(ceiling / (1024 * 1024)));
    }
    if (command->exitStatus() != 0) {
        throw TrackerSupervisorError::helperExited(command->exitStatus(),
                                                   errorMessage(command->standardError()));
    }
    co_return co_await decodeAwayFromTheGuiThread(command->standardOutput());
}

#include "system/AtomicFileWriter.h"

#include "core/PlatformError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Closes a descriptor on every path out of a scope unless released.
class Descriptor {
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int get() const { return m_fd; }
    void reset(int fd = -1) {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd;
};

QString resolvedTarget(const QString& path) {
    // Follow a chain of links the way open() would, so a dotfile manager's link stays a link.
    QString current = QFileInfo(path).absoluteFilePath();
    for (int hop = 0; hop < 40; ++hop) {
        const QFileInfo info(current);
        if (!info.isSymLink()) {
            return current;
        }
        current = info.symLinkTarget();
    }
    return current;
}

bool sameInode(int fd, const QByteArray& path) {
    struct stat byDescriptor {};
    struct stat byName {};
    return ::fstat(fd, &byDescriptor) == 0 && ::lstat(path.constData(), &byName) == 0 &&
           byDescriptor.st_dev == byName.st_dev && byDescriptor.st_ino == byName.st_ino;
}

void removeAbandonedTemporaryFiles(const QFileInfo& target) {
    const QDir directory = target.absoluteDir();
    const QString prefix = AtomicFileWriter::temporaryFilePrefix(target.fileName());
    const QStringList names = directory.entryList(
        {prefix + QLatin1Char('*')}, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks);
    for (const QString& name : names) {
        const QByteArray path = QFile::encodeName(directory.filePath(name));
        Descriptor fd(::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        // A live writer holds its lock until after the rename; only a dead one's file is free.
        if (fd.get() >= 0 && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0 &&
            sameInode(fd.get(), path)) {
            ::unlink(path.constData());
        }
    }
}

void writeAll(int fd, const QByteArray& contents, const QString& temporaryPath) {
    const char* data = contents.constData();
    qsizetype remaining = contents.size();
    while (remaining > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(remaining));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw PlatformError::fromErrno(QStringLiteral("Could not write ") + temporaryPath,
                                           errno);
        }
        data += written;
        remaining -= written;
    }
}

} // namespace

QString AtomicFileWriter::temporaryFilePrefix(const QString& fileName) {
    return QLatin1Char('.') + fileName + QStringLiteral(".tmp-");
}

void AtomicFileWriter::createDirectory(const QString& path) {
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (QFileInfo(absolute).isDir()) {
        return;
    }
    const QString parent = QFileInfo(absolute).absolutePath();
    if (parent != absolute) {
        createDirectory(parent);
    }
    if (::mkdir(QFile::encodeName(absolute).constData(), 0700) != 0) {
        // Something else may have made the folder meanwhile; anything but a folder is in the way.
        const int error = errno == EEXIST && !QFileInfo(absolute).isDir() ? ENOTDIR : errno;
        if (error != EEXIST) {
            throw PlatformError::fromErrno(
                QStringLiteral("Could not create the folder ") + absolute, error);
        }
    }
}

void AtomicFileWriter::write(const QString& path, const QByteArray& contents, mode_t permissions,
                             SymbolicLinks links) {
    const QFileInfo target(links == SymbolicLinks::follow ? resolvedTarget(path)
                                                          : QFileInfo(path).absoluteFilePath());
    const QString directory = target.absolutePath();
    removeAbandonedTemporaryFiles(target);

    const QByteArray pattern =
        QFile::encodeName(QDir(directory).filePath(temporaryFilePrefix(target.fileName()))) +
        QByteArrayLiteral("XXXXXX");
    QByteArray temporary;
    Descriptor fd;
    // Another writer's clean-up may take a file between its creation and its lock; the loop
    // then simply starts over with a fresh name.
    for (int attempt = 0; attempt < 100 && fd.get() < 0; ++attempt) {
        temporary = pattern;
        const int created = ::mkostemp(temporary.data(), O_CLOEXEC);
        if (created < 0) {
            throw PlatformError::fromErrno(
                QStringLiteral("Could not create a temporary file in ") + directory, errno);
        }
        fd.reset(created);
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || !sameInode(fd.get(), temporary)) {
            fd.reset();
        }
    }
    if (fd.get() < 0) {
        throw PlatformError(QStringLiteral("Could not create a temporary file in ") + directory +
                            QStringLiteral(": it kept disappearing."));
    }

    const QString temporaryPath = QFile::decodeName(temporary);
    try {
        if (::fchmod(fd.get(), permissions) != 0) {
            throw PlatformError::fromErrno(
                QStringLiteral("Could not set the permissions of ") + temporaryPath, errno);
        }
        writeAll(fd.get(), contents, temporaryPath);
        if (::fsync(fd.get()) != 0) {
            throw PlatformError::fromErrno(QStringLiteral("Could not write ") + temporaryPath,
                                           errno);
        }
        const QByteArray finalPath = QFile::encodeName(target.absoluteFilePath());
        if (::rename(temporary.constData(), finalPath.constData()) != 0) {
            throw PlatformError::fromErrno(
                QStringLiteral("Could not replace ") + target.absoluteFilePath(), errno);
        }
    } catch (...) {
        ::unlink(temporary.constData());
        throw;
    }
    // Make the rename itself durable; file systems that cannot sync a directory lose nothing
    // that the rename has not already made visible.
    Descriptor directoryFd(
        ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directoryFd.get() >= 0) {
        ::fsync(directoryFd.get());
    }
}

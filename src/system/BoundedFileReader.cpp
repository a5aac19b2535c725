#include "system/BoundedFileReader.h"

#include "core/PlatformError.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

PlatformError unreadable(const QString& path, const QString& reason) {
    return PlatformError(QStringLiteral("Could not read ") + path + QStringLiteral(": ") + reason);
}

QString sizeText(qint64 bytes) {
    constexpr qint64 mebibyte = qint64(1) << 20;
    return bytes % mebibyte == 0 ? QString::number(bytes / mebibyte) + QStringLiteral(" MiB")
                                 : QString::number(bytes) + QStringLiteral(" bytes");
}

void requireRegularFile(const struct stat& info, const QString& path) {
    if (S_ISDIR(info.st_mode)) {
        throw PlatformError::fromErrno(QStringLiteral("Could not read ") + path, EISDIR);
    }
    if (!S_ISREG(info.st_mode)) {
        throw unreadable(path, QStringLiteral("it is not a regular file."));
    }
}

} // namespace

std::optional<QByteArray> BoundedFileReader::read(const QString& path, qint64 limit) {
    const QByteArray name = QFile::encodeName(path);
    // Looking first means a device is never even opened (opening some has effects of its own).
    // A link is followed on purpose: a dotfile manager keeps the real file elsewhere.
    struct stat info {};
    if (::stat(name.constData(), &info) != 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throw PlatformError::fromErrno(QStringLiteral("Could not read ") + path, errno);
    }
    requireRegularFile(info, path);

    // Without blocking, in case something else took the file's place meanwhile; the descriptor's
    // own status is what counts.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        throw PlatformError::fromErrno(QStringLiteral("Could not read ") + path, errno);
    }
    QByteArray bytes;
    try {
        if (::fstat(fd, &info) != 0) {
            throw PlatformError::fromErrno(QStringLiteral("Could not read ") + path, errno);
        }
        requireRegularFile(info, path);
        // The size on record may be wrong or still growing; only the bytes read count, and one
        // more than the limit is enough to know it is too many.
        bytes.resize(qsizetype(std::min<qint64>(info.st_size, limit) + 1));
        qsizetype filled = 0;
        for (;;) {
            if (filled == bytes.size()) {
                if (filled > limit) {
                    throw unreadable(path, QStringLiteral("it is larger than ") + sizeText(limit) +
                                               QLatin1Char('.'));
                }
                bytes.resize(std::min<qsizetype>(filled * 2, qsizetype(limit) + 1));
            }
            const ssize_t count =
                ::read(fd, bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
            if (count == 0) {
                break;
            }
            if (count < 0) {
                if (errno == EINTR) {
                    continue;
                }
                throw PlatformError::fromErrno(QStringLiteral("Could not read ") + path, errno);
            }
            filled += count;
        }
        bytes.truncate(filled);
    } catch (...) {
        ::close(fd);
        throw;
    }
    ::close(fd);
    return bytes;
}

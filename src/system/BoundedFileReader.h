#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Reads a small file of the user's without ever waiting on it or filling memory with it: what sits
// at the path may be a FIFO nobody writes to, a link to a device that never ends, or a file of any
// size. Only a regular file (also behind a link) is opened, and only up to a limit.
class BoundedFileReader {
public:
    // Far more than any of our settings files holds by hand.
    static constexpr qint64 defaultLimit = qint64(1) << 20;

    // The file's bytes, or nothing when nothing is at the path. Throws PlatformError ("Could not
    // read <path>: …") when it cannot be read, is not a regular file or holds more than `limit`
    // bytes.
    static std::optional<QByteArray> read(const QString& path, qint64 limit = defaultLimit);
};

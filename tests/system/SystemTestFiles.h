#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

// Small file helpers shared by the system tests.
namespace SystemTestFiles {

QByteArray read(const QString& path);
void write(const QString& path, const QByteArray& contents);
mode_t permissions(const QString& path);
// Inode and modification time together: an atomic rewrite always changes the inode.
struct Identity {
    ino_t inode = 0;
    qint64 modifiedNanoseconds = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
};
Identity identity(const QString& path);
// Entries of `directory` whose names start with `prefix` (hidden files included).
QStringList entriesStartingWith(const QString& directory, const QString& prefix);

} // namespace SystemTestFiles

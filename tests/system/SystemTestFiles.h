#pragma once

#include "core/VantrelError.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

// Small file helpers shared by the system tests.
namespace SystemTestFiles {

// Empty when there is nothing to read.
inline QByteArray read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void write(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write(contents);
}

inline struct stat status(const QString& path) {
    struct stat info {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0) << path.toStdString();
    return info;
}

// Inode and modification time together: an atomic rewrite always changes the inode.
inline std::pair<ino_t, qint64> identity(const QString& path) {
    const struct stat info = status(path);
    return {info.st_ino, qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

// Entries of `directory` whose names start with `prefix` (hidden files included).
inline QStringList entriesStartingWith(const QString& directory, const QString& prefix) {
    return QDir(directory).entryList({prefix + "*"}, QDir::AllEntries | QDir::Hidden |
                                                         QDir::System | QDir::NoDotAndDotDot);
}

// The description of the error `operation` throws; empty when it throws none.
inline QString errorText(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const VantrelError& error) {
        return error.description();
    }
    return {};
}

// Whether `error` is what `expected` asks for: none when it is empty, else one that contains it.
inline bool matches(const QString& error, const QString& expected) {
    return expected.isEmpty() ? error.isEmpty() : error.contains(expected);
}

// Everything under `root`: each entry's path, link target, permissions and a hash of a regular
// file's contents. Equal snapshots mean nothing was created, removed, replaced or changed.
inline QByteArray snapshot(const QString& root) {
    QByteArray result;
    QDirIterator entries(root,
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QFileInfo entry(entries.next());
        result += entry.filePath().toUtf8() + " " + entry.symLinkTarget().toUtf8() + " " +
                  QByteArray::number(int(entry.permissions())) + " ";
        if (entry.isFile() && !entry.isSymLink()) {
            result += QByteArray::number(qHash(read(entry.filePath())));
        }
        result += "\n";
    }
    return result;
}

} // namespace SystemTestFiles

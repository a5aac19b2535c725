#pragma once

#include "core/VantrelError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

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

// Whether `operation` fails as `expected` says: not at all when it is empty, else with an error
// whose description contains it.
inline testing::AssertionResult failsAs(const std::function<void()>& operation,
                                        const QString& expected) {
    QString error;
    try {
        operation();
    } catch (const VantrelError& caught) {
        error = caught.description();
    }
    if (expected.isEmpty() ? error.isEmpty() : error.contains(expected)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "the error was \"" << error.toStdString() << '"';
}

// Everything under `root` with each entry's mode, size, modification time in nanoseconds and
// link target. Equal snapshots mean nothing was created, removed, replaced or changed.
inline QByteArray snapshot(const QString& root) {
    QProcess ls;
    ls.start("ls", {"-lAR", "--time-style=full-iso", root});
    EXPECT_TRUE(ls.waitForFinished(30000));
    return ls.readAllStandardOutput();
}

} // namespace SystemTestFiles

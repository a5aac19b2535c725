#include "SystemTestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace SystemTestFiles {

QByteArray read(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

void write(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write(contents);
}

mode_t permissions(const QString& path) {
    struct stat info {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    return info.st_mode & 07777;
}

Identity identity(const QString& path) {
    struct stat info {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    return {info.st_ino, qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

QStringList entriesStartingWith(const QString& directory, const QString& prefix) {
    return QDir(directory).entryList({prefix + "*"}, QDir::AllEntries | QDir::Hidden |
                                                         QDir::System | QDir::NoDotAndDotDot);
}

} // namespace SystemTestFiles

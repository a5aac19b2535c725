#include "system/OwnerOnlyAccess.h"

#include "tracker/TrackerRuntimePaths.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t othersRights = S_IRWXG | S_IRWXO;

bool isOursAndLoose(const struct stat& info) {
    return (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) && info.st_uid == ::geteuid() &&
           (info.st_mode & othersRights) != 0;
}

} // namespace

void OwnerOnlyAccess::tighten(const QString& path) {
    // Without a trailing slash, which would make lstat() and O_NOFOLLOW follow a link after all.
    const QByteArray name = QFile::encodeName(QDir::cleanPath(path));
    struct stat info {};
    if (::lstat(name.constData(), &info) != 0 || !isOursAndLoose(info)) {
        return;
    }
    // Changed through a descriptor of the very thing looked at: a link or a FIFO swapped in
    // meanwhile is neither followed nor waited on.
    const int fd =
        ::open(name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    struct stat opened {};
    if (::fstat(fd, &opened) == 0 && opened.st_dev == info.st_dev && opened.st_ino == info.st_ino &&
        isOursAndLoose(opened)) {
        ::fchmod(fd, opened.st_mode & S_IRWXU);
    }
    ::close(fd);
}

void OwnerOnlyAccess::tightenTrackerFiles(const TrackerRuntimePaths& paths) {
    tighten(paths.dataDirectoryURL());
    tighten(paths.configURL());
}

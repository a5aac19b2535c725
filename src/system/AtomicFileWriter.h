#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

// Replaces a file's contents so that neither a reader nor a crash at any moment can see anything
// but the complete old or the complete new contents.
//
// The new contents go to a temporary file beside the target (".<name>.tmp-XXXXXX"), created with
// mode 0600 so it is never readable by others, then flushed to disk and renamed over the target.
// While a write is in flight its temporary file is locked with flock(); a temporary file that
// nobody holds locked belongs to a writer that died mid-write and is removed by the next write,
// so at most the one in flight exists at any time.
class AtomicFileWriter {
public:
    enum class SymbolicLinks {
        // The file a link points to is replaced and the link stays (a dotfile manager's link).
        follow,
        // A link at the path is replaced by the new file.
        replace,
    };

    // Throws PlatformError with the system's words when any step fails; the target is then
    // left exactly as it was and the temporary file is removed.
    static void write(const QString& path, const QByteArray& contents, mode_t permissions,
                      SymbolicLinks links);

    // Creates `path` and any missing parents with mode 0700 (new directories only). Throws
    // PlatformError.
    static void createDirectory(const QString& path);

    // The prefix of the temporary files written for `path` (used to look for leftovers).
    static QString temporaryFilePrefix(const QString& fileName);
};

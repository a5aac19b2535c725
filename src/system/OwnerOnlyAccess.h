#pragma once

#include <QString>

class TrackerRuntimePaths;

// Keeps our own files and folders to their owner, as OpenSSH insists for its own: whatever the
// umask made of them, or whatever an earlier version left, group and others lose every right.
class OwnerOnlyAccess {
public:
    // Takes group and other rights off the file or folder at `path` when it is ours (owned by
    // this user, a regular file or a folder, not a link). Anything else, and any failure, is
    // left alone: a read-only home must not stop the application.
    static void tighten(const QString& path);

    // What start-up tightens of the tracker's files in the home folder.
    static void tightenTrackerFiles(const TrackerRuntimePaths& paths);
};

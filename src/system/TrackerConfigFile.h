#pragma once

#include "system/TrackerConfigWriting.h"

#include <QString>

#include <optional>

// The tracker's INI-like configuration file, read and written only at its top level (the lines
// before the first "[section]").
//
// Reading: every one of U+000A–U+000D, U+0085, U+2028 and U+2029 ends a line (so CR LF leaves an
// empty line between), lines, keys and values are trimmed of tabs and Unicode space separators,
// "#" and ";" start comments, lines without "=" are skipped, and the first line with the key
// decides. A value in double quotes is taken literally up to the next double quote (a missing
// closing quote means no value); any other value is taken as it stands, "#" included.
//
// Writing replaces or adds one `key = "value"` line; every other line keeps its bytes, lines are
// joined with LF and the file ends with one. The file is replaced atomically, only when that
// changes its bytes, and is only ever readable by its owner (0600).
class TrackerConfigFile : public TrackerConfigWriting {
public:
    explicit TrackerConfigFile(QString url);

    const QString& url() const { return m_url; }

    // The top-level "api_key", or nothing when the file or the key is absent. Throws
    // PlatformError when the file cannot be read, is not a regular file, is larger than
    // BoundedFileReader's limit or is not valid UTF-8.
    std::optional<QString> readAPIKey() const;

    static std::optional<QString> valueForKey(const QString& contents, const QString& key);

    // Writes `key = "value"` with backslashes and double quotes escaped by a backslash. Throws
    // PlatformError; a file that is not valid UTF-8 is refused rather than rewritten, and so is
    // a key or value holding a line break, which would split the line.
    void setValue(const QString& value, const QString& key) override;

private:
    QString m_url;
};

#include "FuzzProperty.h"
#include "system/TrackerConfigFile.h"

#include <QString>

// Input: "<key>\0<file contents>", or only the contents, read for "api_key".
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    QByteArrayList parts = inputParts(data, size, 2);
    if (parts[1].isNull()) {
        parts = {"api_key", parts[0]};
    }
    const QString key = QString::fromUtf8(parts[0]);
    const QString contents = QString::fromUtf8(parts[1]);

    const std::optional<QString> value = TrackerConfigFile::valueForKey(contents, key);
    if (value) {
        require(!value->contains(QLatin1Char('\n')) && !value->contains(QLatin1Char('\r')),
                "a value never spans lines");
    }

    // What only comments, blank lines or sections add cannot change the top-level value.
    const QString prefixed =
        QStringLiteral("# ") + key + QStringLiteral(" = \"comment\"\n;\n\t \n");
    require(TrackerConfigFile::valueForKey(prefixed + contents, key) == value,
            "leading comments and blank lines change nothing");
    const QString section =
        QStringLiteral("\n[section]\n") + key + QStringLiteral(" = \"later\"\n");
    require(TrackerConfigFile::valueForKey(contents + section, key) == value,
            "a trailing section changes nothing");
    // Line breaks are all alike: CR LF only adds an empty line.
    QString crlf = contents;
    crlf.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
    require(TrackerConfigFile::valueForKey(crlf, key) == value, "CR LF reads like LF");
    return 0;
}

#include "FuzzProperty.h"
#include "core/PlatformError.h"
#include "system/TrackerConfigFile.h"

#include <QDir>
#include <QFile>
#include <QStringDecoder>
#include <QTemporaryDir>

#include <algorithm>

namespace {

bool isLineBreak(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x000A && u <= 0x000D) || u == 0x0085 || u == 0x2028 || u == 0x2029;
}

bool isBlank(QChar c) {
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

bool holdsLineBreak(const QString& text) {
    return std::any_of(text.cbegin(), text.cend(), isLineBreak);
}

// A key that reads back as itself from the line `key = "…"`. One that starts with U+FEFF would
// be taken for a byte order mark on the file's first line.
bool isReadableKey(const QString& key) {
    if (key.isEmpty()) {
        return true;
    }
    return key.front() != QChar(0xFEFF) && !isBlank(key.front()) && !isBlank(key.back()) &&
           !key.contains(QLatin1Char('=')) && !key.startsWith(QLatin1Char('#')) &&
           !key.startsWith(QLatin1Char(';')) && !key.startsWith(QLatin1Char('[')) &&
           !holdsLineBreak(key);
}

// The writer escapes backslashes and quotes for the helper, which reads escapes; our reader
// takes quoted text literally, so only values without them read back unchanged.
bool isLiteralValue(const QString& value) {
    return !value.contains(QLatin1Char('"')) && !value.contains(QLatin1Char('\\')) &&
           !holdsLineBreak(value);
}

QByteArray readAll(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return file.readAll();
}

void writeAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write(bytes) == bytes.size(),
            "the fuzzer can write its own file");
}

std::optional<QString> decodedUtf8(const QByteArray& bytes) {
    // As the file is read: a byte order mark stays a character for the caller to strip.
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

// A memory-backed folder where one exists: every write replaces the file atomically and syncs it,
// which on a disk would make each run take milliseconds.
QString scratchFile() {
    static QTemporaryDir directory(QDir(QStringLiteral("/dev/shm")).exists()
                                       ? QStringLiteral("/dev/shm/vantrel-fuzz-XXXXXX")
                                       : QDir::tempPath() + QStringLiteral("/vantrel-fuzz-XXXXXX"));
    require(directory.isValid(), "a scratch folder exists");
    return directory.filePath(QStringLiteral("tracker/config.toml"));
}

} // namespace

// Input: "<file contents>\0<key>\0<value>"; without the NULs the contents get a new "api_key".
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    QByteArrayList parts = inputParts(data, size, 3);
    if (parts[1].isNull()) {
        parts = {parts[0], "api_key", "a-new-key"};
    }
    const QByteArray& original = parts[0];
    const QString key = QString::fromUtf8(parts[1]);
    const QString value = QString::fromUtf8(parts[2]);

    const QString path = scratchFile();
    QDir().mkpath(QFileInfo(path).absolutePath());
    writeAll(path, original);
    const std::optional<QString> originalText = decodedUtf8(original);
    const QString otherKey =
        key == QLatin1String("api_key") ? QStringLiteral("api_url") : QStringLiteral("api_key");

    TrackerConfigFile file(path);
    const bool refused = holdsLineBreak(key) || holdsLineBreak(value) || !originalText;
    try {
        file.setValue(value, key);
    } catch (const PlatformError&) {
        require(refused, "only a line break or a file that is not UTF-8 is refused");
        require(readAll(path) == original, "a refused write leaves the file as it was");
        return 0;
    }
    require(!refused, "a line break or a file that is not UTF-8 is refused");

    const QByteArray written = readAll(path);
    require(written.endsWith('\n'), "the file ends with a line break");
    if (isReadableKey(key)) {
        QString text = *decodedUtf8(written);
        if (text.startsWith(QChar(0xFEFF))) {
            text.remove(0, 1);
        }
        if (isLiteralValue(value)) {
            require(TrackerConfigFile::valueForKey(text, key) == value,
                    "a value written with setValue reads back unchanged");
            if (key == QLatin1String("api_key")) {
                require(file.readAPIKey() == value, "readAPIKey finds the written key");
            }
        }
        QString before = *originalText;
        if (before.startsWith(QChar(0xFEFF))) {
            before.remove(0, 1);
        }
        require(TrackerConfigFile::valueForKey(text, otherKey) ==
                    TrackerConfigFile::valueForKey(before, otherKey),
                "writing one key leaves another key's value alone");
    }

    // A key that does not read back (say "# x") is not found again, so each write adds a line.
    if (isReadableKey(key)) {
        file.setValue(value, key);
        require(readAll(path) == written, "writing the same value again changes nothing");
    }
    return 0;
}

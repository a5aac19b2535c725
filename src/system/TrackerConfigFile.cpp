#include "system/TrackerConfigFile.h"

#include "core/PlatformError.h"
#include "system/AtomicFileWriter.h"
#include "system/BoundedFileReader.h"

#include <QFileInfo>
#include <QList>
#include <QStringDecoder>
#include <QStringView>

#include <algorithm>

namespace {

constexpr QChar byteOrderMark(0xFEFF);

bool isLineBreak(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x000A && u <= 0x000D) || u == 0x0085 || u == 0x2028 || u == 0x2029;
}

bool isBlank(QChar c) {
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QStringView trimmed(QStringView text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(text[end - 1])) {
        --end;
    }
    return text.sliced(begin, end - begin);
}

QList<QStringView> splitLines(QStringView text) {
    QList<QStringView> lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isLineBreak(text[i])) {
            lines.append(text.sliced(start, i - start));
            start = i + 1;
        }
    }
    lines.append(text.sliced(start));
    return lines;
}

bool startsSection(QStringView line) {
    return trimmed(line).startsWith(QLatin1Char('['));
}

struct KeyLine {
    QStringView key;
    QStringView value;
};

// The key and the raw (trimmed) value of a line that assigns one, or nothing for comments,
// blank lines and lines without "=".
std::optional<KeyLine> keyLine(QStringView line) {
    const QStringView content = trimmed(line);
    if (content.startsWith(QLatin1Char('#')) || content.startsWith(QLatin1Char(';'))) {
        return std::nullopt;
    }
    const qsizetype equals = content.indexOf(QLatin1Char('='));
    if (equals < 0) {
        return std::nullopt;
    }
    return KeyLine{trimmed(content.first(equals)), trimmed(content.sliced(equals + 1))};
}

// The file's bytes and their text, or nothing when there is no file.
struct Contents {
    QByteArray bytes;
    QString text;
};

std::optional<Contents> readContents(const QString& path) {
    std::optional<QByteArray> bytes = BoundedFileReader::read(path);
    if (!bytes) {
        return std::nullopt;
    }

    // Keep a byte order mark as a character so that a rewrite gives the file back unchanged.
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(*bytes);
    if (decoder.hasError()) {
        throw PlatformError(QStringLiteral("The file ") + path +
                            QStringLiteral(" is not valid UTF-8 text."));
    }
    return Contents{std::move(*bytes), std::move(text)};
}

bool holdsLineBreak(const QString& text) {
    return std::any_of(text.cbegin(), text.cend(), isLineBreak);
}

QString escaped(QString value) {
    value.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    value.replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return value;
}

} // namespace

TrackerConfigFile::TrackerConfigFile(QString url)
    : m_url(std::move(url)) {}

std::optional<QString> TrackerConfigFile::readAPIKey() const {
    const std::optional<Contents> contents = readContents(m_url);
    if (!contents) {
        return std::nullopt;
    }
    QStringView text(contents->text);
    if (text.startsWith(byteOrderMark)) {
        text = text.sliced(1);
    }
    return valueForKey(text.toString(), QStringLiteral("api_key"));
}

std::optional<QString> TrackerConfigFile::valueForKey(const QString& contents, const QString& key) {
    for (const QStringView line : splitLines(contents)) {
        if (startsSection(line)) {
            return std::nullopt;
        }
        const std::optional<KeyLine> entry = keyLine(line);
        if (!entry || entry->key != key) {
            continue;
        }
        if (!entry->value.startsWith(QLatin1Char('"'))) {
            return entry->value.toString();
        }
        const QStringView quoted = entry->value.sliced(1);
        const qsizetype closing = quoted.indexOf(QLatin1Char('"'));
        if (closing < 0) {
            return std::nullopt;
        }
        return quoted.first(closing).toString();
    }
    return std::nullopt;
}

void TrackerConfigFile::setValue(const QString& value, const QString& key) {
    if (holdsLineBreak(value) || holdsLineBreak(key)) {
        throw PlatformError(QStringLiteral("A line break cannot be written into ") + m_url +
                            QLatin1Char('.'));
    }
    AtomicFileWriter::createDirectory(QFileInfo(m_url).absolutePath());
    const std::optional<Contents> contents = readContents(m_url);

    QStringView text = contents ? QStringView(contents->text) : QStringView();
    const bool hasByteOrderMark = text.startsWith(byteOrderMark);
    if (hasByteOrderMark) {
        text = text.sliced(1);
    }
    QList<QStringView> lines = splitLines(text);
    // A text that ends with a line break ends the last line; it does not start another one.
    if (lines.last().isEmpty()) {
        lines.removeLast();
    }

    const QString newLine = key + QStringLiteral(" = \"") + escaped(value) + QLatin1Char('"');
    qsizetype replaced = -1;
    qsizetype firstSection = -1;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (startsSection(lines[i])) {
            firstSection = i;
            break;
        }
        const std::optional<KeyLine> entry = keyLine(lines[i]);
        if (entry && entry->key == key) {
            replaced = i;
            break;
        }
    }
    if (replaced >= 0) {
        lines[replaced] = newLine;
    } else if (firstSection >= 0) {
        lines.insert(firstSection, newLine);
    } else {
        lines.append(newLine);
    }

    QString result;
    if (hasByteOrderMark) {
        result.append(byteOrderMark);
    }
    for (const QStringView line : lines) {
        result.append(line);
        result.append(QLatin1Char('\n'));
    }
    const QByteArray bytes = result.toUtf8();
    // Nothing to change means nothing to write: a read-only home that already says the right
    // thing keeps working.
    if (contents && contents->bytes == bytes) {
        return;
    }
    AtomicFileWriter::write(m_url, bytes, 0600, AtomicFileWriter::SymbolicLinks::follow);
}

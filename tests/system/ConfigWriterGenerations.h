#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// The contents the crash-safety test expects to find after each generation of writes.
namespace ConfigWriterGenerations {

inline QString value(qint64 generation) {
    // Large enough to take several write() calls, and different in every byte from the next
    // generation's value.
    const QChar fill(QLatin1Char(char('a' + generation % 26)));
    return QString::number(generation) + ':' + QString(300 * 1024, fill);
}

inline QByteArray contents(qint64 generation) {
    return "# written by the crash-safety test\napi_url = \"" + value(generation).toUtf8() +
           "\"\n[other]\nkey = 1\n";
}

// The generation whose complete contents `bytes` are, or nothing for anything else.
inline std::optional<qint64> generationOf(const QByteArray& bytes) {
    const QByteArray marker = "api_url = \"";
    const qsizetype start = bytes.indexOf(marker);
    const qsizetype colon = bytes.indexOf(':', start);
    if (start < 0 || colon < 0) {
        return std::nullopt;
    }
    bool ok = false;
    const qint64 generation =
        bytes.mid(start + marker.size(), colon - start - marker.size()).toLongLong(&ok);
    if (!ok || contents(generation) != bytes) {
        return std::nullopt;
    }
    return generation;
}

} // namespace ConfigWriterGenerations

#include "core/SnakeCaseKeys.h"

#include <QStringList>

QString SnakeCaseKeys::fieldNameForKey(const QString& key) {
    qsizetype first = 0;
    while (first < key.size() && key.at(first) == QLatin1Char('_')) {
        ++first;
    }
    if (first == key.size()) {
        return key;
    }
    qsizetype last = key.size() - 1;
    while (key.at(last) == QLatin1Char('_')) {
        --last;
    }
    const QString core = key.mid(first, last - first + 1);
    const QStringList pieces = core.split(QLatin1Char('_'), Qt::SkipEmptyParts);
    QString joined;
    if (pieces.size() == 1) {
        joined = core;
    } else {
        joined = pieces.first().toLower();
        for (qsizetype i = 1; i < pieces.size(); ++i) {
            const QString& piece = pieces.at(i);
            joined += piece.left(1).toUpper() + piece.mid(1).toLower();
        }
    }
    return key.left(first) + joined + key.mid(last + 1);
}

QJsonObject SnakeCaseKeys::withFieldNames(const QJsonObject& object) {
    QJsonObject renamed;
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString field = fieldNameForKey(it.key());
        if (!renamed.contains(field)) {
            renamed.insert(field, it.value());
        }
    }
    return renamed;
}

std::optional<qint64> SnakeCaseKeys::wholeNumber(const QJsonValue& value) {
    if (!value.isDouble()) {
        return std::nullopt;
    }
    // toInteger() falls back to its argument when the value is fractional or out of range, so two
    // different fallbacks tell a real value from a miss.
    const qint64 first = value.toInteger(0);
    if (first == 0 && value.toInteger(1) != 0) {
        return std::nullopt;
    }
    return first;
}

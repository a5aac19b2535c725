#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

// The rules by which the JSON the tracker helper and the service send is matched to our field
// names: snake_case keys (in any letter case) or camelCase keys name the same field.
class SnakeCaseKeys {
public:
    // "schema_version", "SCHEMA_VERSION" and "schemaVersion" all give "schemaVersion"; leading
    // and trailing underscores are kept.
    static QString fieldNameForKey(const QString& key);

    // The object with every key converted. When two spellings name one field the first in key
    // order wins, so the choice is deterministic.
    static QJsonObject withFieldNames(const QJsonObject& object);

    // A JSON number that is whole and fits in 64 bits, exactly; anything else gives nothing.
    static std::optional<qint64> wholeNumber(const QJsonValue& value);
};

#include "tracker/TrackerStatus.h"

#include "tracker/TrackerStatusDecodingError.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

namespace {

// The fields by name, with the converted key of the document that supplies each.
class FieldReader {
public:
    explicit FieldReader(const QJsonObject& object) {
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QString field = TrackerStatus::fieldNameForKey(it.key());
            // QJsonObject iterates in key order, so when two spellings name one field the choice
            // is deterministic.
            if (!m_values.contains(field)) {
                m_values.insert(field, it.value());
            }
        }
    }

    QString text(const char* field) { return required(field, &FieldReader::asText); }
    bool boolean(const char* field) { return required(field, &FieldReader::asBoolean); }
    qint64 integer(const char* field) { return required(field, &FieldReader::asInteger); }
    std::optional<QString> optionalText(const char* field) {
        return optional(field, &FieldReader::asText);
    }
    std::optional<qint64> optionalInteger(const char* field) {
        return optional(field, &FieldReader::asInteger);
    }

private:
    template <typename T>
    using Converter = std::optional<T> (*)(const QJsonValue&);

    template <typename T>
    T required(const char* field, Converter<T> convert) {
        const QJsonValue value = m_values.value(QLatin1String(field), QJsonValue::Undefined);
        if (value.isUndefined() || value.isNull()) {
            throw TrackerStatusDecodingError(
                QStringLiteral("the required field \"%1\" is missing").arg(QLatin1String(field)));
        }
        return checked(field, convert(value));
    }

    template <typename T>
    std::optional<T> optional(const char* field, Converter<T> convert) {
        const QJsonValue value = m_values.value(QLatin1String(field), QJsonValue::Undefined);
        if (value.isUndefined() || value.isNull()) {
            return std::nullopt;
        }
        return checked(field, convert(value));
    }

    template <typename T>
    static T checked(const char* field, std::optional<T> converted) {
        if (!converted) {
            throw TrackerStatusDecodingError(
                QStringLiteral("the field \"%1\" has the wrong type").arg(QLatin1String(field)));
        }
        return *converted;
    }

    static std::optional<QString> asText(const QJsonValue& value) {
        return value.isString() ? std::optional(value.toString()) : std::nullopt;
    }

    static std::optional<bool> asBoolean(const QJsonValue& value) {
        return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
    }

    // A whole number that fits in 64 bits. toInteger() falls back to its argument when the value
    // is fractional or out of range, so two different fallbacks tell a real value from a miss.
    static std::optional<qint64> asInteger(const QJsonValue& value) {
        if (!value.isDouble()) {
            return std::nullopt;
        }
        const qint64 first = value.toInteger(0);
        if (first == 0 && value.toInteger(1) != 0) {
            return std::nullopt;
        }
        return first;
    }

    QHash<QString, QJsonValue> m_values;
};

} // namespace

QString TrackerStatus::fieldNameForKey(const QString& key) {
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

TrackerStatus TrackerStatus::decode(const QByteArray& json) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        throw TrackerStatusDecodingError(QStringLiteral("it is not valid JSON (%1 at offset %2)")
                                             .arg(parseError.errorString())
                                             .arg(parseError.offset));
    }
    if (!document.isObject()) {
        throw TrackerStatusDecodingError(QStringLiteral("the document is not a JSON object"));
    }

    FieldReader read(document.object());
    TrackerStatus s;
    s.schemaVersion = read.integer("schemaVersion");
    s.trackerVersion = read.text("trackerVersion");
    s.installedBinaryVersion = read.optionalText("installedBinaryVersion");
    s.vantrelConfigPath = read.text("vantrelConfigPath");
    s.vantrelConfigExists = read.boolean("vantrelConfigExists");
    s.wakatimeCompatConfigPath = read.text("wakatimeCompatConfigPath");
    s.wakatimeCompatConfigExists = read.boolean("wakatimeCompatConfigExists");
    s.statePath = read.text("statePath");
    s.stateExists = read.boolean("stateExists");
    s.pendingQueuePath = read.text("pendingQueuePath");
    s.pendingQueueExists = read.boolean("pendingQueueExists");
    s.stdoutLogPath = read.text("stdoutLogPath");
    s.stdoutLogExists = read.boolean("stdoutLogExists");
    s.stderrLogPath = read.text("stderrLogPath");
    s.stderrLogExists = read.boolean("stderrLogExists");
    s.serviceDefinitionPath = read.text("serviceDefinitionPath");
    s.serviceDefinitionExists = read.boolean("serviceDefinitionExists");
    s.serviceState = read.text("serviceState");
    s.binaryInstallPath = read.text("binaryInstallPath");
    s.authenticated = read.boolean("authenticated");
    s.deviceId = read.text("deviceId");
    s.deviceName = read.text("deviceName");
    s.queuedHeartbeats = read.integer("queuedHeartbeats");
    s.queuedActivitySegments = read.integer("queuedActivitySegments");
    s.droppedHeartbeats = read.integer("droppedHeartbeats");
    s.droppedActivitySegments = read.integer("droppedActivitySegments");
    s.presenceCoverage = read.text("presenceCoverage");
    s.presenceReason = read.text("presenceReason");
    s.lastPresenceSampleAt = read.optionalText("lastPresenceSampleAt");
    s.lastPresenceSegmentAt = read.optionalText("lastPresenceSegmentAt");
    s.lastPresenceError = read.optionalText("lastPresenceError");
    s.lastSuccessfulUploadAt = read.optionalText("lastSuccessfulUploadAt");
    s.lastSuccessfulUploadCount = read.optionalInteger("lastSuccessfulUploadCount");
    s.lastUploadAttemptAt = read.optionalText("lastUploadAttemptAt");
    s.lastUploadErrorKind = read.optionalText("lastUploadErrorKind");
    s.lastUploadError = read.optionalText("lastUploadError");
    return s;
}

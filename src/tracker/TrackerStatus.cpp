#include "tracker/TrackerStatus.h"

#include "core/SnakeCaseKeys.h"
#include "tracker/TrackerStatusDecodingError.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

namespace {

// The fields by name, with the converted key of the document that supplies each.
class FieldReader {
public:
    explicit FieldReader(const QJsonObject& object)
        : m_values(SnakeCaseKeys::withFieldNames(object)) {}

    QString text(const char* field) { return required(field, &FieldReader::asText); }
    bool boolean(const char* field) { return required(field, &FieldReader::asBoolean); }
    qint64 integer(const char* field) { return required(field, &SnakeCaseKeys::wholeNumber); }
    std::optional<QString> optionalText(const char* field) {
        return optional(field, &FieldReader::asText);
    }
    std::optional<qint64> optionalInteger(const char* field) {
        return optional(field, &SnakeCaseKeys::wholeNumber);
    }

private:
    template <typename T>
    using Converter = std::optional<T> (*)(const QJsonValue&);

    template <typename T>
    T required(const char* field, Converter<T> convert) {
        const QJsonValue value = m_values.value(QLatin1String(field));
        if (value.isUndefined() || value.isNull()) {
            throw TrackerStatusDecodingError(
                QStringLiteral("the required field \"%1\" is missing").arg(QLatin1String(field)));
        }
        return checked(field, convert(value));
    }

    template <typename T>
    std::optional<T> optional(const char* field, Converter<T> convert) {
        const QJsonValue value = m_values.value(QLatin1String(field));
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

    QJsonObject m_values;
};

} // namespace

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

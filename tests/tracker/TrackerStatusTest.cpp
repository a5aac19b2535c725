#include "tracker/TrackerStatus.h"

#include "StatusDocument.h"
#include "core/SnakeCaseKeys.h"
#include "tracker/TrackerStatusDecodingError.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

// The decoded report's schema version, or why decoding failed.
QString decoded(const QJsonDocument& document) {
    try {
        return QString::number(TrackerStatus::decode(document.toJson()).schemaVersion);
    } catch (const TrackerStatusDecodingError& error) {
        return error.reason();
    }
}

TEST(TrackerStatusDecoding, KeepsValuesAsReceivedAndReadsNullOrMissingOptionalFieldsAsAbsent) {
    QJsonObject object = statusObject("2.3.0");
    object.insert("queued_activity_segments", -2);
    object.insert("dropped_activity_segments", 9223372036854775807LL);
    object.insert("queued_heartbeats", 4.0); // a whole number written with a fraction
    object.insert("last_successful_upload_at", "2024-05-01T10:00:00.123Z");
    object.insert("last_successful_upload_count", 40);
    object.insert("last_upload_error", QJsonValue::Null);
    object.insert("uptime_seconds", "unknown keys may hold anything");
    const TrackerStatus status = TrackerStatus::decode(QJsonDocument(object).toJson());
    EXPECT_EQ(status.trackerVersion, "2.3.0");
    EXPECT_EQ(status.queuedActivitySegments, -2);
    EXPECT_EQ(status.droppedActivitySegments, 9223372036854775807LL);
    EXPECT_EQ(status.queuedHeartbeats, 4);
    EXPECT_EQ(status.lastSuccessfulUploadAt, "2024-05-01T10:00:00.123Z");
    EXPECT_EQ(status.lastSuccessfulUploadCount, 40);
    EXPECT_FALSE(status.installedBinaryVersion || status.lastPresenceSampleAt ||
                 status.lastPresenceSegmentAt || status.lastPresenceError ||
                 status.lastUploadAttemptAt || status.lastUploadErrorKind ||
                 status.lastUploadError);
}

// Keys match a field in any letter case and with any run of inner underscores, and nothing else.
TEST(TrackerStatusDecoding, MatchesTheSchemaVersionFieldOnlyForAcceptedSpellings) {
    const std::initializer_list<std::pair<QString, bool>> spellings{
        {"schemaVersion", true},   {"SCHEMA_VERSION", true}, {"Schema_Version", true},
        {"schema__version", true}, {"SchemaVersion", false}, {"_schema_version", false},
        {"schema_version_", false}};
    for (const auto& [key, matches] : spellings) {
        QJsonObject object = statusObject("2.3.0");
        object.remove("schema_version");
        object.insert(key, 7);
        EXPECT_EQ(decoded(QJsonDocument(object)),
                  matches ? "7" : "the required field \"schemaVersion\" is missing")
            << key.toStdString();
    }
}

TEST(TrackerStatusDecoding, AValueOrDocumentOfTheWrongKindFailsTheWholeDocument) {
    const std::initializer_list<std::pair<QString, QJsonValue>> wrongValues{
        {"queued_heartbeats", 3.5},      {"authenticated", 1},
        {"queued_heartbeats", "12"},     {"tracker_version", 2},
        {"device_id", QJsonValue::Null}, {"last_successful_upload_count", "many"}};
    for (const auto& [key, value] : wrongValues) {
        QJsonObject object = statusObject("2.3.0");
        object.insert(key, value);
        const QString failure = decoded(QJsonDocument(object));
        EXPECT_TRUE(failure.contains(SnakeCaseKeys::fieldNameForKey(key))) << failure.toStdString();
    }
    EXPECT_EQ(decoded(QJsonDocument(QJsonArray{1, 2})), "the document is not a JSON object");
}

} // namespace

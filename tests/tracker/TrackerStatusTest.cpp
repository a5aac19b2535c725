#include "tracker/TrackerStatus.h"

#include "StatusDocument.h"
#include "core/SnakeCaseKeys.h"
#include "support/TableRows.h"
#include "tracker/TrackerStatusDecodingError.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

QByteArray encoded(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString decodingFailure(const QByteArray& json) {
    try {
        TrackerStatus::decode(json);
    } catch (const TrackerStatusDecodingError& error) {
        return error.description();
    }
    return {};
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
    const TrackerStatus status = TrackerStatus::decode(encoded(object));
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

using KeySpelling = std::pair<const char*, bool>; // and whether it names the field

class TrackerStatusKeyRule : public testing::TestWithParam<KeySpelling> {};

TEST_P(TrackerStatusKeyRule, MatchesTheSchemaVersionFieldOnlyForAcceptedSpellings) {
    QJsonObject object = statusObject("2.3.0");
    object.remove("schema_version");
    const auto& [key, matches] = GetParam();
    object.insert(QString::fromLatin1(key), 7);
    if (matches) {
        EXPECT_EQ(TrackerStatus::decode(encoded(object)).schemaVersion, 7);
    } else {
        EXPECT_TRUE(decodingFailure(encoded(object)).contains("schemaVersion"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Spellings, TrackerStatusKeyRule,
    testing::Values(KeySpelling{"schemaVersion", true}, KeySpelling{"SCHEMA_VERSION", true},
                    KeySpelling{"Schema_Version", true}, KeySpelling{"schema__version", true},
                    KeySpelling{"SchemaVersion", false}, KeySpelling{"_schema_version", false},
                    KeySpelling{"schema_version_", false}),
    [](const auto& row) { return std::string(row.param.first); });

struct BadValue {
    const char* name;
    const char* key;
    QJsonValue value;
};

class TrackerStatusValueRule : public testing::TestWithParam<BadValue> {};

TEST_P(TrackerStatusValueRule, FailsTheWholeDocumentNamingTheField) {
    QJsonObject object = statusObject("2.3.0");
    object.insert(QString::fromLatin1(GetParam().key), GetParam().value);
    const QString message = decodingFailure(encoded(object));
    EXPECT_TRUE(message.contains(SnakeCaseKeys::fieldNameForKey(GetParam().key)))
        << message.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Values, TrackerStatusValueRule,
                         testing::Values(BadValue{"fractionForInteger", "queued_heartbeats", 3.5},
                                         BadValue{"oneForBoolean", "authenticated", 1},
                                         BadValue{"stringForInteger", "queued_heartbeats", "12"},
                                         BadValue{"numberForText", "tracker_version", 2},
                                         BadValue{"nullForRequired", "device_id", QJsonValue::Null},
                                         BadValue{"beyondInt64", "dropped_heartbeats", 1e19},
                                         BadValue{"wrongTypeForOptional",
                                                  "last_successful_upload_count", "many"}),
                         rowName);

} // namespace

#include "tracker/TrackerStatus.h"

#include "tracker/TrackerStatusDecodingError.h"
#include "tracker/TrackerSupervisorError.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

QJsonObject requiredFields() {
    return QJsonObject{
        {"schema_version", 3},
        {"tracker_version", "2.3.0"},
        {"vantrel_config_path", "/home/a/.vantrel/config.toml"},
        {"vantrel_config_exists", true},
        {"wakatime_compat_config_path", "/home/a/.wakatime.cfg"},
        {"wakatime_compat_config_exists", false},
        {"state_path", "/home/a/.vantrel/state.json"},
        {"state_exists", true},
        {"pending_queue_path", "/home/a/.vantrel/queue.db"},
        {"pending_queue_exists", false},
        {"stdout_log_path", "/home/a/.vantrel/tracker/stdout.log"},
        {"stdout_log_exists", true},
        {"stderr_log_path", "/home/a/.vantrel/tracker/stderr.log"},
        {"stderr_log_exists", true},
        {"service_definition_path", "/home/a/.config/systemd/user/vantrel.service"},
        {"service_definition_exists", false},
        {"service_state", "not installed"},
        {"binary_install_path", "/home/a/.local/bin/vantrel-tracker"},
        {"authenticated", true},
        {"device_id", "6F9619FF-8B86-D011-B42D-00C04FC964FF"},
        {"device_name", "anna-laptop"},
        {"queued_heartbeats", 12},
        {"queued_activity_segments", -2},
        {"dropped_heartbeats", 0},
        {"dropped_activity_segments", 9223372036854775807LL},
        {"presence_coverage", "partial"},
        {"presence_reason", "idle detection unavailable"},
    };
}

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

TEST(TrackerStatusDecoding, ReadsEveryRequiredFieldAndLeavesTheNineOptionalOnesAbsent) {
    const TrackerStatus status = TrackerStatus::decode(encoded(requiredFields()));
    EXPECT_EQ(status.schemaVersion, 3);
    EXPECT_EQ(status.trackerVersion, "2.3.0");
    EXPECT_EQ(status.queuedActivitySegments, -2);
    EXPECT_EQ(status.droppedActivitySegments, 9223372036854775807LL);
    EXPECT_EQ(status.serviceState, "not installed");
    EXPECT_TRUE(status.authenticated);
    EXPECT_FALSE(status.installedBinaryVersion);
    EXPECT_FALSE(status.lastPresenceSampleAt);
    EXPECT_FALSE(status.lastPresenceSegmentAt);
    EXPECT_FALSE(status.lastPresenceError);
    EXPECT_FALSE(status.lastSuccessfulUploadAt);
    EXPECT_FALSE(status.lastSuccessfulUploadCount);
    EXPECT_FALSE(status.lastUploadAttemptAt);
    EXPECT_FALSE(status.lastUploadErrorKind);
    EXPECT_FALSE(status.lastUploadError);
}

TEST(TrackerStatusDecoding, KeepsOptionalFieldsAndTimestampsAsReceived) {
    QJsonObject object = requiredFields();
    object.insert("last_successful_upload_at", "2024-05-01T10:00:00.123Z");
    object.insert("last_successful_upload_count", 40);
    object.insert("last_upload_error_kind", "network");
    object.insert("last_upload_error", QJsonValue::Null);
    object.insert("uptime_seconds", 5);
    const TrackerStatus status = TrackerStatus::decode(encoded(object));
    EXPECT_EQ(status.lastSuccessfulUploadAt, "2024-05-01T10:00:00.123Z");
    EXPECT_EQ(status.lastSuccessfulUploadCount, 40);
    EXPECT_EQ(status.lastUploadErrorKind, "network");
    EXPECT_FALSE(status.lastUploadError) << "null reads as absent";
}

struct KeySpelling {
    const char* name;
    const char* key;
    bool matches;
};

void PrintTo(const KeySpelling& row, std::ostream* out) {
    *out << row.name;
}

class TrackerStatusKeyRule : public testing::TestWithParam<KeySpelling> {};

TEST_P(TrackerStatusKeyRule, MatchesTheSchemaVersionFieldOnlyForAcceptedSpellings) {
    QJsonObject object = requiredFields();
    object.remove("schema_version");
    object.insert(QString::fromLatin1(GetParam().key), 7);
    if (GetParam().matches) {
        EXPECT_EQ(TrackerStatus::decode(encoded(object)).schemaVersion, 7);
    } else {
        EXPECT_TRUE(decodingFailure(encoded(object)).contains("schemaVersion"));
    }
}

INSTANTIATE_TEST_SUITE_P(Spellings, TrackerStatusKeyRule,
                         testing::Values(KeySpelling{"snake", "schema_version", true},
                                         KeySpelling{"camel", "schemaVersion", true},
                                         KeySpelling{"upperSnake", "SCHEMA_VERSION", true},
                                         KeySpelling{"mixedSnake", "Schema_Version", true},
                                         KeySpelling{"doubledUnderscore", "schema__version", true},
                                         KeySpelling{"capitalisedCamel", "SchemaVersion", false},
                                         KeySpelling{"leadingUnderscore", "_schema_version", false},
                                         KeySpelling{"trailingUnderscore", "schema_version_",
                                                     false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(TrackerStatusKeyRule, ConvertsKeysLikeTheHelperWritesThem) {
    EXPECT_EQ(TrackerStatus::fieldNameForKey("last_upload_error_kind"), "lastUploadErrorKind");
    EXPECT_EQ(TrackerStatus::fieldNameForKey("_private_key_"), "_privateKey_");
    EXPECT_EQ(TrackerStatus::fieldNameForKey("___"), "___");
    EXPECT_EQ(TrackerStatus::fieldNameForKey("URL"), "URL");
    EXPECT_EQ(TrackerStatus::fieldNameForKey(""), "");
}

struct BadValue {
    const char* name;
    const char* key;
    QJsonValue value;
};

void PrintTo(const BadValue& row, std::ostream* out) {
    *out << row.name;
}

class TrackerStatusValueRule : public testing::TestWithParam<BadValue> {};

TEST_P(TrackerStatusValueRule, FailsTheWholeDocument) {
    QJsonObject object = requiredFields();
    object.insert(QString::fromLatin1(GetParam().key), GetParam().value);
    const QString message = decodingFailure(encoded(object));
    EXPECT_TRUE(message.startsWith("The tracker status could not be read"))
        << message.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Values, TrackerStatusValueRule,
    testing::Values(BadValue{"fractionForInteger", "queued_heartbeats", 3.5},
                    BadValue{"oneForBoolean", "authenticated", 1},
                    BadValue{"stringForInteger", "queued_heartbeats", "12"},
                    BadValue{"numberForText", "tracker_version", 2},
                    BadValue{"nullForRequired", "device_id", QJsonValue::Null},
                    BadValue{"beyondInt64", "dropped_heartbeats", 1e19},
                    BadValue{"wrongTypeForOptional", "last_successful_upload_count", "many"},
                    BadValue{"objectForOptionalText", "last_upload_error", QJsonObject{}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(TrackerStatusDecoding, AcceptsAWholeNumberWrittenWithAFraction) {
    QJsonObject object = requiredFields();
    object.insert("queued_heartbeats", 4.0);
    EXPECT_EQ(TrackerStatus::decode(encoded(object)).queuedHeartbeats, 4);
}

TEST(TrackerStatusDecoding, RejectsDocumentsThatAreNotAStatusObject) {
    for (const QByteArray& document :
         {QByteArray(), QByteArray("[]"), QByteArray("{\"schema_version\": 1"),
          QByteArray("{\"tracker_version\": \"\xff\xfe\"}"), QByteArray("{\"n\": 1e400}"),
          QByteArray("not json at all")}) {
        EXPECT_FALSE(decodingFailure(document).isEmpty()) << document.toStdString();
    }
}

TEST(TrackerSupervisorError, DescribesBothCasesInTheHelpersWords) {
    EXPECT_EQ(TrackerSupervisorError::helperMissing("/opt/v/vantrel-tracker").description(),
              "Tracker helper is missing at /opt/v/vantrel-tracker.");
    EXPECT_EQ(TrackerSupervisorError::helperExited(3, "bad config").description(),
              "Tracker helper exited with status 3: bad config");
    EXPECT_EQ(TrackerSupervisorError::helperExited(-1, "").description(),
              "Tracker helper exited with status -1: ");
}

} // namespace

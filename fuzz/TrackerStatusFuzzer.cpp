#include "FuzzProperty.h"
#include "tracker/TrackerStatus.h"
#include "tracker/TrackerStatusDecodingError.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

// The status as the helper would print it, in one key spelling or the other.
QByteArray encoded(const TrackerStatus& s, bool camelCase) {
    QJsonObject object;
    const auto put = [&](const char* snake, const char* camel, const QJsonValue& value) {
        object.insert(QLatin1String(camelCase ? camel : snake), value);
    };
    const auto putOptional = [&](const char* snake, const char* camel, const auto& value) {
        put(snake, camel, value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null));
    };
    put("schema_version", "schemaVersion", s.schemaVersion);
    put("tracker_version", "trackerVersion", s.trackerVersion);
    putOptional("installed_binary_version", "installedBinaryVersion", s.installedBinaryVersion);
    put("vantrel_config_path", "vantrelConfigPath", s.vantrelConfigPath);
    put("vantrel_config_exists", "vantrelConfigExists", s.vantrelConfigExists);
    put("wakatime_compat_config_path", "wakatimeCompatConfigPath", s.wakatimeCompatConfigPath);
    put("wakatime_compat_config_exists", "wakatimeCompatConfigExists",
        s.wakatimeCompatConfigExists);
    put("state_path", "statePath", s.statePath);
    put("state_exists", "stateExists", s.stateExists);
    put("pending_queue_path", "pendingQueuePath", s.pendingQueuePath);
    put("pending_queue_exists", "pendingQueueExists", s.pendingQueueExists);
    put("stdout_log_path", "stdoutLogPath", s.stdoutLogPath);
    put("stdout_log_exists", "stdoutLogExists", s.stdoutLogExists);
    put("stderr_log_path", "stderrLogPath", s.stderrLogPath);
    put("stderr_log_exists", "stderrLogExists", s.stderrLogExists);
    put("service_definition_path", "serviceDefinitionPath", s.serviceDefinitionPath);
    put("service_definition_exists", "serviceDefinitionExists", s.serviceDefinitionExists);
    put("service_state", "serviceState", s.serviceState);
    put("binary_install_path", "binaryInstallPath", s.binaryInstallPath);
    put("authenticated", "authenticated", s.authenticated);
    put("device_id", "deviceId", s.deviceId);
    put("device_name", "deviceName", s.deviceName);
    put("queued_heartbeats", "queuedHeartbeats", s.queuedHeartbeats);
    put("queued_activity_segments", "queuedActivitySegments", s.queuedActivitySegments);
    put("dropped_heartbeats", "droppedHeartbeats", s.droppedHeartbeats);
    put("dropped_activity_segments", "droppedActivitySegments", s.droppedActivitySegments);
    put("presence_coverage", "presenceCoverage", s.presenceCoverage);
    put("presence_reason", "presenceReason", s.presenceReason);
    putOptional("last_presence_sample_at", "lastPresenceSampleAt", s.lastPresenceSampleAt);
    putOptional("last_presence_segment_at", "lastPresenceSegmentAt", s.lastPresenceSegmentAt);
    putOptional("last_presence_error", "lastPresenceError", s.lastPresenceError);
    putOptional("last_successful_upload_at", "lastSuccessfulUploadAt", s.lastSuccessfulUploadAt);
    putOptional("last_successful_upload_count", "lastSuccessfulUploadCount",
                s.lastSuccessfulUploadCount);
    putOptional("last_upload_attempt_at", "lastUploadAttemptAt", s.lastUploadAttemptAt);
    putOptional("last_upload_error_kind", "lastUploadErrorKind", s.lastUploadErrorKind);
    putOptional("last_upload_error", "lastUploadError", s.lastUploadError);
    return QJsonDocument(object).toJson(camelCase ? QJsonDocument::Indented
                                                  : QJsonDocument::Compact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    TrackerStatus status;
    try {
        status = TrackerStatus::decode(document);
    } catch (const TrackerStatusDecodingError& error) {
        require(!error.reason().isEmpty(), "a refusal says why");
        return 0;
    }
    for (const bool camelCase : {false, true}) {
        TrackerStatus again;
        try {
            again = TrackerStatus::decode(encoded(status, camelCase));
        } catch (const TrackerStatusDecodingError&) {
            require(false, "a decoded status re-encodes to a document that decodes");
        }
        require(again == status, "a decoded status equals itself decoded from its re-encoding");
    }
    return 0;
}

#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>

#include <optional>

// The helper's report of its own condition, printed by its status command as one JSON object.
// Timestamps stay text exactly as received; the views parse them for display.
struct TrackerStatus {
    qint64 schemaVersion = 0;
    QString trackerVersion;
    std::optional<QString> installedBinaryVersion;
    QString vantrelConfigPath;
    bool vantrelConfigExists = false;
    QString wakatimeCompatConfigPath;
    bool wakatimeCompatConfigExists = false;
    QString statePath;
    bool stateExists = false;
    QString pendingQueuePath;
    bool pendingQueueExists = false;
    QString stdoutLogPath;
    bool stdoutLogExists = false;
    QString stderrLogPath;
    bool stderrLogExists = false;
    QString serviceDefinitionPath;
    bool serviceDefinitionExists = false;
    QString serviceState;
    QString binaryInstallPath;
    bool authenticated = false;
    QString deviceId;
    QString deviceName;
    qint64 queuedHeartbeats = 0;
    qint64 queuedActivitySegments = 0;
    qint64 droppedHeartbeats = 0;
    qint64 droppedActivitySegments = 0;
    QString presenceCoverage;
    QString presenceReason;
    std::optional<QString> lastPresenceSampleAt;
    std::optional<QString> lastPresenceSegmentAt;
    std::optional<QString> lastPresenceError;
    std::optional<QString> lastSuccessfulUploadAt;
    std::optional<qint64> lastSuccessfulUploadCount;
    std::optional<QString> lastUploadAttemptAt;
    std::optional<QString> lastUploadErrorKind;
    std::optional<QString> lastUploadError;

    friend bool operator==(const TrackerStatus&, const TrackerStatus&) = default;

    // Decodes a status document. Keys may be snake_case, upper or mixed case snake_case, or
    // camelCase; unknown keys are ignored. Throws TrackerStatusDecodingError.
    static TrackerStatus decode(const QByteArray& json);
};

Q_DECLARE_METATYPE(TrackerStatus)

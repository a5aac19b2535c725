#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

// A status report as the helper prints it, with every required key and none of the optional ones.
inline QByteArray statusDocument(const QString& trackerVersion) {
    const QJsonObject object{
        {"schema_version", 1},
        {"tracker_version", trackerVersion},
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
        {"service_state", "running"},
        {"binary_install_path", "/home/a/.local/bin/vantrel-tracker"},
        {"authenticated", true},
        {"device_id", "device-1"},
        {"device_name", "desk"},
        {"queued_heartbeats", 0},
        {"queued_activity_segments", 0},
        {"dropped_heartbeats", 0},
        {"dropped_activity_segments", 0},
        {"presence_coverage", "full"},
        {"presence_reason", "sampling"},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

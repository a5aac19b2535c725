#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

// A status report as the helper prints it, with every required key and none of the optional ones.
inline QJsonObject statusObject(const QString& trackerVersion) {
    QJsonObject object{{"schema_version", 1},
                       {"tracker_version", trackerVersion},
                       {"service_state", "running"},
                       {"binary_install_path", "/home/a/.local/bin/vantrel-tracker"},
                       {"authenticated", true},
                       {"device_id", "6F9619FF-8B86-D011-B42D-00C04FC964FF"},
                       {"device_name", "desk"},
                       {"presence_coverage", "full"},
                       {"presence_reason", "sampling"}};
    for (const QString file : {"vantrel_config", "wakatime_compat_config", "state", "pending_queue",
                               "stdout_log", "stderr_log", "service_definition"}) {
        object.insert(file + "_path", "/home/a/.vantrel/" + file);
        object.insert(file + "_exists", true);
    }
    for (const QString counter : {"queued_heartbeats", "queued_activity_segments",
                                  "dropped_heartbeats", "dropped_activity_segments"}) {
        object.insert(counter, 0);
    }
    return object;
}

inline QByteArray statusDocument(const QString& trackerVersion) {
    return QJsonDocument(statusObject(trackerVersion)).toJson(QJsonDocument::Compact);
}

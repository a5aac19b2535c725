#pragma once

#include "system/LegacyTrackerMigrating.h"
#include "tracker/TrackerRuntimePaths.h"

#include <QObject>
#include <QString>

class CredentialStoring;
class SleepScheduling;
class SystemCommandRunning;

// Moves an installation that ran the tracker as a background service over to the application:
// the plain-text key in the configuration file goes to the credential store (and is blanked in
// the file only once the store reads it back), the two legacy services are stopped and their
// definition files deleted. Running it again on a migrated system changes nothing.
//
// Services are driven through a launchctl-style command: "bootout <target>" to stop one and
// "print <target>" (exit status 0 while it is still loaded) to watch it go, with the target
// "gui/<uid>/<label>". On Linux that command is `vantrel-launchctl`, which answers from systemd
// user units and is installed beside the tracker helper (next to the application in a build
// tree).
class LegacyTrackerMigration : public QObject, public LegacyTrackerMigrating {
    Q_OBJECT
public:
    // The file name of the launchctl substitute built with the application.
    static QString launchctlFileName() { return QStringLiteral("vantrel-launchctl"); }
    static constexpr int defaultMaximumStatusChecks = 20;

    LegacyTrackerMigration(TrackerRuntimePaths paths, CredentialStoring& credentialStore,
                           SystemCommandRunning& commandRunner, SleepScheduling& sleeper,
                           QString launchctlURL, quint32 userID, int maximumStatusChecks);

    QCoro::Task<LegacyMigrationResult> migrateIfNeeded() override;

private:
    QString serviceTarget(const QString& label) const;
    QCoro::Task<bool> isStillLoaded(QString target);

    TrackerRuntimePaths m_paths;
    CredentialStoring* m_credentialStore;
    SystemCommandRunning* m_commandRunner;
    SleepScheduling* m_sleeper;
    QString m_launchctlURL;
    quint32 m_userID;
    int m_maximumStatusChecks;
};

#include "main/CompositionRoot.h"

#include "api/DeviceAuthorizationClient.h"
#include "api/NetworkAccessDeviceAuthorizationTransport.h"
#include "api/NetworkAccessTodaySummaryTransport.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryPoller.h"
#include "app/AppState.h"
#include "app/ResumeRefresher.h"
#include "main/DesktopScenes.h"
#include "main/FirstRequestPreparedNetworkAccessManager.h"
#include "system/DBusSecretServiceAwaiter.h"
#include "system/FreedesktopNotifier.h"
#include "system/HostnamedHostNamer.h"
#include "system/InstallLayout.h"
#include "system/LegacyTrackerMigration.h"
#include "system/Login1SessionResumeWatcher.h"
#include "system/NetworkManagerReturnWatcher.h"
#include "system/OwnerOnlyAccess.h"
#include "system/QProcessSystemCommandRunner.h"
#include "system/QSettingsDefaultsStore.h"
#include "system/SecretServiceCredentialStore.h"
#include "system/TrackerConfigFile.h"
#include "system/XdgAutostartLoginItemManager.h"
#include "tracker/ForkExecTrackerProcessRunner.h"
#include "tracker/TaskSleepScheduler.h"
#include "tracker/TrackerRuntimePaths.h"
#include "tracker/TrackerSupervisor.h"
#include "ui/ActionRequiredAnnouncer.h"
#include "ui/DesktopServicesWorkspace.h"
#include "ui/QApplicationController.h"
#include "ui/QClipboardWriter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDir>
#include <QStandardPaths>

#include <unistd.h>

// In creation order; members are destroyed in reverse, so everything outlives its users.
struct CompositionRoot::Collaborators {
    TrackerRuntimePaths paths{QDir::homePath()};
    InstallLayout installation{QCoreApplication::applicationDirPath()};
    SecretServiceCredentialStore credentialStore{QLatin1String(credentialService),
                                                 QLatin1String(credentialAccount)};
    DBusSecretServiceAwaiter secretService{QDBusConnection::sessionBus()};
    ForkExecTrackerProcessRunner processRunner;
    TaskSleepScheduler supervisorSleeper;
    TrackerSupervisor supervisor{processRunner, supervisorSleeper, maximumRestartAttempts};
    XdgAutostartLoginItemManager loginItems{
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation),
        QCoreApplication::applicationFilePath()};
    QProcessSystemCommandRunner commandRunner;
    FirstRequestPreparedNetworkAccessManager network;
    NetworkAccessDeviceAuthorizationTransport deviceAuthorizationTransport{&network};
    DeviceAuthorizationClient deviceAuthorizer{&deviceAuthorizationTransport,
                                               [] { return QDateTime::currentDateTimeUtc(); }};
    NetworkAccessTodaySummaryTransport todaySummaryTransport{&network};
    TodaySummaryClient todaySummaryClient{&todaySummaryTransport};
    QSettingsDefaultsStore defaults;
    // Shared by the poller and the migration.
    TaskSleepScheduler sleeper;
    TodaySummaryPoller todaySummaryPoller{&todaySummaryClient, &sleeper,
                                          todaySummaryRefreshInterval};
    LegacyTrackerMigration migration{
        paths,
        credentialStore,
        commandRunner,
        sleeper,
        installation.expectedProgramPath(LegacyTrackerMigration::launchctlFileName()),
        static_cast<quint32>(::getuid()),
        legacyServiceStatusChecks};
    TrackerConfigFile configFile{paths.configURL()};
    DesktopServicesWorkspace workspace;
    QApplicationController application;
    QClipboardWriter clipboard;
    HostnamedHostNamer host;
    // The browser sign-in's own sleep between polls.
    TaskSleepScheduler taskSleeper;
    Login1SessionResumeWatcher sessionResume{QDBusConnection::systemBus()};
    NetworkManagerReturnWatcher networkReturn{QDBusConnection::systemBus()};
    ResumeRefresher resumeRefresher{sessionResume, networkReturn, supervisor, todaySummaryPoller};
    FreedesktopNotifier notifier{QDBusConnection::sessionBus(), QStringLiteral("Vantrel"),
                                 QLatin1String(DesktopScenes::applicationId)};
};

CompositionRoot::CompositionRoot()
    : m_collaborators(std::make_unique<Collaborators>()) {}

CompositionRoot::~CompositionRoot() {
    m_announcer.reset();
    m_appState.reset();
}

AppState& CompositionRoot::makeAppState(bool startAutomatically) {
    Q_ASSERT(!m_appState);
    Collaborators& c = *m_collaborators;
    OwnerOnlyAccess::tightenTrackerFiles(c.paths);
    m_appState = std::make_unique<AppState>(
        AppStateCollaborators{
            .paths = c.paths,
            .credentialStore = &c.credentialStore,
            .secretService = &c.secretService,
            .supervisor = &c.supervisor,
            .loginItemManager = &c.loginItems,
            .migration = &c.migration,
            .deviceAuthorizer = &c.deviceAuthorizer,
            .todaySummaryPoller = &c.todaySummaryPoller,
            .sleeper = &c.sleeper,
            .defaults = &c.defaults,
            .configFile = &c.configFile,
            .workspace = &c.workspace,
            .application = &c.application,
            .clipboard = &c.clipboard,
            .installation = &c.installation,
            .host = &c.host,
            .taskSleeper = &c.taskSleeper,
        },
        startAutomatically);
    m_announcer = std::make_unique<ActionRequiredAnnouncer>(*m_appState, c.supervisor, c.notifier,
                                                            c.sleeper, c.sessionResume);
    return *m_appState;
}

QApplicationController& CompositionRoot::applicationController() {
    return m_collaborators->application;
}

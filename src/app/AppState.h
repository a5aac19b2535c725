#pragma once

#include "api/DeviceAuthorizationSession.h"
#include "app/AppStateCollaborators.h"
#include "app/TrackerHealth.h"
#include "core/TaskHandle.h"
#include "core/TodaySummary.h"
#include "tracker/TrackerSupervising.h"

#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QUrl>

#include <optional>
#include <utility>

// The one observable application object: everything the views show apart from the supervisor's
// own properties, and every decision the application takes by itself. Lives on the GUI thread.
//
// The implementation is spread over several source files, one per concern: start-up and the
// shared helpers (AppState.cpp), the browser sign-in (AppStateDeviceAuthorization.cpp), the
// settings action (AppStateSettings.cpp) and the status line with diagnostics
// (AppStateDiagnostics.cpp).
class AppState : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasCredential READ hasCredential NOTIFY hasCredentialChanged)
    Q_PROPERTY(QString serverURL READ serverURL NOTIFY serverURLChanged)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(bool isStarting READ isStarting NOTIFY isStartingChanged)
    Q_PROPERTY(
        std::optional<QString> presentedError READ presentedError NOTIFY presentedErrorChanged)
    Q_PROPERTY(std::optional<QString> migrationSummary READ migrationSummary NOTIFY
                   migrationSummaryChanged)
    Q_PROPERTY(std::optional<QString> deviceAuthorizationCode READ deviceAuthorizationCode NOTIFY
                   deviceAuthorizationCodeChanged)
    Q_PROPERTY(std::optional<QDateTime> deviceAuthorizationExpiresAt READ
                   deviceAuthorizationExpiresAt NOTIFY deviceAuthorizationExpiresAtChanged)
    Q_PROPERTY(std::optional<QString> deviceAuthorizationMessage READ deviceAuthorizationMessage
                   NOTIFY deviceAuthorizationMessageChanged)
    Q_PROPERTY(bool isAuthorizingDevice READ isAuthorizingDevice NOTIFY isAuthorizingDeviceChanged)
    Q_PROPERTY(
        std::optional<TodaySummary> todaySummary READ todaySummary NOTIFY todaySummaryChanged)
    Q_PROPERTY(TrackerHealth health READ health NOTIFY healthChanged)
    Q_PROPERTY(bool isCredentialRejected READ isCredentialRejected NOTIFY healthChanged)
    Q_PROPERTY(TrackerSupervising* supervisor READ supervisor CONSTANT)

public:
    static const QString defaultServerURL;
    // The service's web origin, against which openWebPage resolves its paths.
    static const QUrl& webOrigin();

    AppState(AppStateCollaborators collaborators, bool startAutomatically,
             QObject* parent = nullptr);
    ~AppState() override;

    bool hasCredential() const { return m_hasCredential; }
    const QString& serverURL() const { return m_serverURL; }
    bool launchAtLogin() const { return m_launchAtLogin; }
    bool isStarting() const { return m_isStarting; }
    const std::optional<QString>& presentedError() const { return m_presentedError; }
    const std::optional<QString>& migrationSummary() const { return m_migrationSummary; }
    const std::optional<QString>& deviceAuthorizationCode() const {
        return m_deviceAuthorizationCode;
    }
    const std::optional<QDateTime>& deviceAuthorizationExpiresAt() const {
        return m_deviceAuthorizationExpiresAt;
    }
    const std::optional<QString>& deviceAuthorizationMessage() const {
        return m_deviceAuthorizationMessage;
    }
    bool isAuthorizingDevice() const { return m_isAuthorizingDevice; }
    const std::optional<TodaySummary>& todaySummary() const { return m_todaySummary; }
    TrackerSupervising* supervisor() const { return m_c.supervisor; }

    // Start-up: import, server URL, status, credential, tracker, launch at login. Runs once; a
    // second call returns at once, also while the first is suspended.
    QCoro::Task<void> start();
    // Stops tracking, forgets the key and revokes it on the service. The store answers later;
    // callers need not await it.
    QCoro::Task<void> signOut();
    void quit();
    void openSettings();
    void showSettings();
    void openWebPage(const QString& path);

    // Trims blanks and "/" at both ends; requires the literal scheme "https" and an authority
    // that parses, and returns the trimmed text. Throws AppStateError (invalidServerURL).
    static QString normalizedServerURL(const QString& text);
    // A string as a URL, as strictly as the platform's URL parser; none when it does not parse.
    static std::optional<QUrl> parsedURL(const QString& text);
    void persistServerURL();
    std::optional<QString> helperExecutableURL() const;
    QString currentDeviceName() const;
    void startTracker(const QString& apiKey);
    void applyLaunchAtLogin(bool enabled);

    // Browser sign-in.
    void beginDeviceAuthorization();
    void cancelDeviceAuthorization();
    void openDeviceAuthorizationPage();
    QString clientVersion() const;

    // Settings: validates, replaces the key when one was typed, persists, restarts or stops
    // tracking, applies launch at login. Throws the first failure.
    QCoro::Task<void> saveSettings(QString serverURL, QString apiKey, bool launchAtLogin);

    // Status line and diagnostics.
    TrackerHealth health() const;
    bool isCredentialRejected() const;
    QString appVersionDescription() const;
    QString diagnosticsReport() const;
    void copyDiagnostics();
    void openLogs();

Q_SIGNALS:
    void hasCredentialChanged();
    void serverURLChanged();
    void launchAtLoginChanged();
    void isStartingChanged();
    void presentedErrorChanged();
    void migrationSummaryChanged();
    void deviceAuthorizationCodeChanged();
    void deviceAuthorizationExpiresAtChanged();
    void deviceAuthorizationMessageChanged();
    void isAuthorizingDeviceChanged();
    void todaySummaryChanged();
    // Any input of health() or isCredentialRejected() changed.
    void healthChanged();

private:
    QCoro::Task<void> runDeviceAuthorization(TaskHandle task);
    QCoro::Task<std::pair<QString, DeviceAuthorizationSession>>
    startDeviceAuthorizationSession(CancellationToken token);
    QCoro::Task<void> pollDeviceAuthorization(QString serverURL, DeviceAuthorizationSession session,
                                              CancellationToken token);
    QCoro::Task<void> completeDeviceAuthorization(QString apiKey, CancellationToken token);
    void clearDeviceAuthorizationFields();

    // Ends the start-up sequence with `message` shown.
    void failStartup(const QString& message);

    // Each setter notifies only on a real change.
    template <typename T, typename Signal>
    void assign(T& member, T value, Signal changed);

    void setHasCredential(bool value);
    void setServerURL(QString value);
    void setLaunchAtLogin(bool value);
    void setIsStarting(bool value);
    void setPresentedError(std::optional<QString> value);
    void setMigrationSummary(std::optional<QString> value);
    void setDeviceAuthorizationCode(std::optional<QString> value);
    void setDeviceAuthorizationExpiresAt(std::optional<QDateTime> value);
    void setDeviceAuthorizationMessage(std::optional<QString> value);
    void setIsAuthorizingDevice(bool value);
    void setTodaySummary(std::optional<TodaySummary> value);

    AppStateCollaborators m_c;

    bool m_hasCredential = false;
    QString m_serverURL;
    bool m_launchAtLogin = true;
    bool m_isStarting = true;
    std::optional<QString> m_presentedError;
    std::optional<QString> m_migrationSummary;
    std::optional<QString> m_deviceAuthorizationCode;
    std::optional<QDateTime> m_deviceAuthorizationExpiresAt;
    std::optional<QString> m_deviceAuthorizationMessage;
    bool m_isAuthorizingDevice = false;
    std::optional<TodaySummary> m_todaySummary;

    std::optional<TaskHandle> m_startupTask;
    std::optional<TaskHandle> m_deviceAuthorizationTask;
    std::optional<QUrl> m_deviceAuthorizationURL;
    bool m_didStart = false;
};

#include "app/AppState.h"

#include "api/DeviceAuthorizing.h"
#include "api/TodaySummaryPolling.h"
#include "app/AppStateError.h"
#include "app/ApplicationControlling.h"
#include "app/WorkspaceOpening.h"
#include "system/CredentialStoring.h"
#include "system/DefaultsStoring.h"
#include "system/HostNaming.h"
#include "system/InstallationDescribing.h"
#include "system/LegacyTrackerMigrating.h"
#include "system/LoginItemManaging.h"
#include "system/SecretServiceAwaiting.h"
#include "system/TrackerConfigWriting.h"
#include "tracker/TrackerSupervising.h"
#include "tracker/TrackerSupervisorError.h"

#include <QMetaObject>
#include <QPointer>

namespace {

const QString serverURLKey = QStringLiteral("serverURL");
const QString launchAtLoginKey = QStringLiteral("launchAtLogin");
const QString launchAtLoginInitializedKey = QStringLiteral("launchAtLoginInitialized");
const QString apiURLConfigKey = QStringLiteral("api_url");

// Revocation outlives the sign-out call and must not touch the AppState: it holds copies.
QCoro::Task<void> revokeIgnoringFailure(DeviceAuthorizing* authorizer, QString serverURL,
                                        QString apiKey) {
    try {
        co_await authorizer->revoke(std::move(serverURL), std::move(apiKey), CancellationToken());
    } catch (...) {
        // The key is gone locally either way; the service may still hold it, which the user can
        // revoke from the dashboard.
    }
}

QString trimmedOf(QString text, QChar character) {
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && text.at(first) == character) {
        ++first;
    }
    while (last > first && text.at(last - 1) == character) {
        --last;
    }
    return text.mid(first, last - first);
}

} // namespace

const QString AppState::defaultServerURL = QStringLiteral("https://api.vantrel.app/api/vantrel/v1");

const QUrl& AppState::webOrigin() {
    static const QUrl origin(QStringLiteral("https://vantrel.app"), QUrl::StrictMode);
    Q_ASSERT(origin.isValid());
    return origin;
}

AppState::AppState(AppStateCollaborators collaborators, bool startAutomatically, QObject* parent)
    : QObject(parent)
    , m_c(std::move(collaborators)) {
    m_serverURL = m_c.defaults->string(serverURLKey).value_or(defaultServerURL);
    m_launchAtLogin = m_c.defaults->boolean(launchAtLoginInitializedKey)
                          ? m_c.defaults->boolean(launchAtLoginKey)
                          : true;

    connect(m_c.supervisor, &TrackerSupervising::helperRunningChanged, this,
            &AppState::healthChanged);
    connect(m_c.supervisor, &TrackerSupervising::crashLockedChanged, this,
            &AppState::healthChanged);
    connect(m_c.supervisor, &TrackerSupervising::trackerStatusChanged, this,
            &AppState::healthChanged);

    if (startAutomatically) {
        // Start-up begins on the next turn of the event loop, never inside the constructor, and
        // not at all if this object is gone by then (the context object holds it weakly).
        m_startupTask = TaskHandle();
        QMetaObject::invokeMethod(
            this, [this] { start(); }, Qt::QueuedConnection);
    } else {
        m_isStarting = false;
    }
}

AppState::~AppState() {
    if (m_deviceAuthorizationTask) {
        m_deviceAuthorizationTask->cancel();
    }
}

QCoro::Task<void> AppState::start() {
    if (m_didStart) {
        co_return;
    }
    m_didStart = true;
    setIsStarting(true);
    // Said first, so that any failure below, which matters more, takes its place.
    if (const std::optional<QString> problem = m_c.defaults->readProblem()) {
        setPresentedError(*problem);
    }
    // Collaborators resume this coroutine later; the object may be gone by then.
    const QPointer<AppState> self(this);

    // At login the keyring may come up after us; a key read before it is there would end
    // start-up with the unreachable message although the key is stored.
    co_await m_c.secretService->awaitSecretService();
    if (!self) {
        co_return;
    }

    LegacyMigrationResult migration;
    try {
        migration = co_await m_c.migration->migrateIfNeeded();
    } catch (...) {
        if (self) {
            failStartup(VantrelError::describe(std::current_exception()));
        }
        co_return;
    }
    if (!self) {
        co_return;
    }
    if (migration.importedCredential || migration.stoppedServiceCount >= 1) {
        setMigrationSummary(
            QStringLiteral("Imported the existing tracker and stopped its background service."));
    }

    try {
        persistServerURL();
    } catch (...) {
        failStartup(VantrelError::describe(std::current_exception()));
        co_return;
    }

    if (const auto helper = helperExecutableURL()) {
        co_await m_c.supervisor->refreshStatus(*helper, m_c.paths.configURL());
        if (!self) {
            co_return;
        }
    }

    std::optional<QString> key;
    try {
        const bool found =
            (co_await m_c.credentialStore->loadAPIKey(CancellationToken())).has_value();
        if (!self) {
            co_return;
        }
        setHasCredential(found);
        key = co_await m_c.credentialStore->loadAPIKey(CancellationToken());
    } catch (...) {
        if (self) {
            failStartup(VantrelError::describe(std::current_exception()));
        }
        co_return;
    }
    if (!self) {
        co_return;
    }
    if (key) {
        startTracker(*key);
    }

    try {
        applyLaunchAtLogin(m_launchAtLogin);
    } catch (...) {
        setPresentedError(
            QStringLiteral("Tracking started, but launch at login could not be updated: ") +
            VantrelError::describe(std::current_exception()));
    }
    setIsStarting(false);
}

void AppState::failStartup(const QString& message) {
    setPresentedError(message);
    setIsStarting(false);
}

QString AppState::normalizedServerURL(const QString& text) {
    const QString trimmed = trimmedOf(text.trimmed(), QLatin1Char('/'));
    // QUrl lower-cases schemes, so the scheme is checked on the text itself; "https:" without
    // "//" has no authority and so no host. Whatever passes is kept exactly as typed: user info,
    // a query or an international host are the server's business, and the helper reads the same
    // text from config.toml.
    const bool hasHTTPSAuthority = trimmed.startsWith(QLatin1String("https://"));
    if (!hasHTTPSAuthority || !parsedURL(trimmed)) {
        throw AppStateError(AppStateError::Code::invalidServerURL);
    }
    return trimmed;
}

std::optional<QUrl> AppState::parsedURL(const QString& text) {
    if (text.isEmpty()) {
        return std::nullopt;
    }
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    return url;
}

void AppState::persistServerURL() {
    const QString normalized = normalizedServerURL(m_serverURL);
    setServerURL(normalized);
    m_c.defaults->setString(serverURLKey, normalized);
    m_c.configFile->setValue(normalized, apiURLConfigKey);
}

std::optional<QString> AppState::helperExecutableURL() const {
    return m_c.installation->helperExecutablePath();
}

QString AppState::currentDeviceName() const {
    const std::optional<QString> name = m_c.host->localizedName();
    if (name && !name->isEmpty()) {
        return *name;
    }
    return m_c.host->hostName();
}

void AppState::startTracker(const QString& apiKey) {
    const std::optional<QString> helper = helperExecutableURL();
    if (!helper) {
        setPresentedError(
            TrackerSupervisorError::helperMissing(m_c.installation->expectedHelperPath())
                .description());
        return;
    }
    m_c.supervisor->start(LaunchConfiguration{
        .executableURL = *helper,
        .configURL = m_c.paths.configURL(),
        .apiKey = apiKey,
        .deviceName = currentDeviceName(),
        .stdoutURL = m_c.paths.stdoutLogURL(),
        .stderrURL = m_c.paths.stderrLogURL(),
    });

    QString baseURL;
    try {
        baseURL = normalizedServerURL(m_serverURL);
    } catch (const VantrelError&) {
        // Tracking runs without today's total; the settings window shows the URL problem.
        return;
    }
    const QPointer<AppState> self(this);
    m_c.todaySummaryPoller->start(baseURL, apiKey, [self](const TodaySummary& summary) {
        if (self) {
            self->setTodaySummary(summary);
        }
    });
}

void AppState::applyLaunchAtLogin(bool enabled) {
    m_c.loginItemManager->setEnabled(enabled);
    setLaunchAtLogin(enabled);
    m_c.defaults->setBoolean(launchAtLoginKey, enabled);
    m_c.defaults->setBoolean(launchAtLoginInitializedKey, true);
}

QCoro::Task<void> AppState::signOut() {
    const QPointer<AppState> self(this);
    cancelDeviceAuthorization();

    std::optional<QString> key;
    try {
        key = co_await m_c.credentialStore->loadAPIKey(CancellationToken());
    } catch (const VantrelError&) {
        // Without a readable key there is nothing to revoke; the delete below still runs.
    }
    if (!self) {
        co_return;
    }
    const std::optional<QUrl> revokeURL = parsedURL(m_serverURL);
    const QString revokeServerURL = m_serverURL;
    DeviceAuthorizing* const authorizer = m_c.deviceAuthorizer;

    m_c.supervisor->stop(true);
    m_c.todaySummaryPoller->stop();
    setTodaySummary(std::nullopt);

    std::exception_ptr failure;
    try {
        co_await m_c.credentialStore->deleteAPIKey(CancellationToken());
    } catch (...) {
        failure = std::current_exception();
    }
    if (key && revokeURL) {
        revokeIgnoringFailure(authorizer, revokeServerURL, *key);
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        setPresentedError(VantrelError::describe(failure));
    } else {
        setHasCredential(false);
        setPresentedError(std::nullopt);
    }
}

void AppState::quit() {
    m_c.todaySummaryPoller->stop();
    m_c.supervisor->stop(true);
    m_c.application->terminate();
}

void AppState::openSettings() {
    m_c.application->activate();
    // The window opens on the next turn, after activation has been processed.
    QMetaObject::invokeMethod(
        this, [this] { showSettings(); }, Qt::QueuedConnection);
}

void AppState::showSettings() {
    m_c.application->showSettingsWindow();
}

void AppState::openWebPage(const QString& path) {
    const QUrl url = webOrigin().resolved(QUrl(path));
    if (url.isValid()) {
        m_c.workspace->openURL(url);
    }
}

template <typename T, typename Signal>
void AppState::assign(T& member, T value, Signal changed) {
    if (member == value) {
        return;
    }
    member = std::move(value);
    Q_EMIT(this->*changed)();
}

void AppState::setHasCredential(bool value) {
    const bool before = m_hasCredential;
    assign(m_hasCredential, value, &AppState::hasCredentialChanged);
    if (before != value) {
        Q_EMIT healthChanged();
    }
}

void AppState::setServerURL(QString value) {
    assign(m_serverURL, std::move(value), &AppState::serverURLChanged);
}

void AppState::setLaunchAtLogin(bool value) {
    assign(m_launchAtLogin, value, &AppState::launchAtLoginChanged);
}

void AppState::setIsStarting(bool value) {
    const bool before = m_isStarting;
    assign(m_isStarting, value, &AppState::isStartingChanged);
    if (before != value) {
        Q_EMIT healthChanged();
    }
}

void AppState::setPresentedError(std::optional<QString> value) {
    assign(m_presentedError, std::move(value), &AppState::presentedErrorChanged);
}

void AppState::setMigrationSummary(std::optional<QString> value) {
    assign(m_migrationSummary, std::move(value), &AppState::migrationSummaryChanged);
}

void AppState::setDeviceAuthorizationCode(std::optional<QString> value) {
    assign(m_deviceAuthorizationCode, std::move(value), &AppState::deviceAuthorizationCodeChanged);
}

void AppState::setDeviceAuthorizationExpiresAt(std::optional<QDateTime> value) {
    assign(m_deviceAuthorizationExpiresAt, std::move(value),
           &AppState::deviceAuthorizationExpiresAtChanged);
}

void AppState::setDeviceAuthorizationMessage(std::optional<QString> value) {
    assign(m_deviceAuthorizationMessage, std::move(value),
           &AppState::deviceAuthorizationMessageChanged);
}

void AppState::setIsAuthorizingDevice(bool value) {
    const bool before = m_isAuthorizingDevice;
    assign(m_isAuthorizingDevice, value, &AppState::isAuthorizingDeviceChanged);
    if (before != value) {
        Q_EMIT healthChanged();
    }
}

void AppState::setTodaySummary(std::optional<TodaySummary> value) {
    assign(m_todaySummary, std::move(value), &AppState::todaySummaryChanged);
}

#include "ui/MenuBarPresenter.h"

#include "app/AppState.h"
#include "tracker/TrackerSupervising.h"
#include "ui/CountdownText.h"
#include "ui/HealthAppearance.h"

MenuBarPresenter::MenuBarPresenter(AppState& appState, TrackerSupervising& supervisor, Clock clock,
                                   const TickerFactory& makeTicker, WindowOpener openWindow,
                                   QObject* parent)
    : QObject(parent)
    , m_appState(appState)
    , m_supervisor(supervisor)
    , m_clock(std::move(clock))
    , m_openWindow(std::move(openWindow))
    , m_lastSyncTicker(makeTicker())
    , m_countdownTicker(makeTicker())
    , m_timeZone(QTimeZone::systemTimeZone()) {
    const auto changedSignals = {
        &AppState::hasCredentialChanged,
        &AppState::presentedErrorChanged,
        &AppState::migrationSummaryChanged,
        &AppState::deviceAuthorizationCodeChanged,
        &AppState::deviceAuthorizationExpiresAtChanged,
        &AppState::deviceAuthorizationMessageChanged,
        &AppState::isAuthorizingDeviceChanged,
        &AppState::todaySummaryChanged,
        &AppState::healthChanged,
    };
    for (const auto signal : changedSignals) {
        connect(&m_appState, signal, this, &MenuBarPresenter::onStateChanged);
    }
    connect(&m_supervisor, &TrackerSupervising::crashLockedChanged, this,
            &MenuBarPresenter::onStateChanged);
    connect(&m_supervisor, &TrackerSupervising::lastErrorChanged, this,
            &MenuBarPresenter::onStateChanged);
    connect(&m_supervisor, &TrackerSupervising::trackerStatusChanged, this,
            [this] { evaluateLastSync(m_clock()); });
    connect(m_lastSyncTicker.get(), &Ticking::ticked, this,
            [this] { evaluateLastSync(m_clock()); });
    connect(m_countdownTicker.get(), &Ticking::ticked, this, &MenuBarPresenter::countdownChanged);
    evaluateLastSync(m_clock());
}

MenuBarPresenter::~MenuBarPresenter() = default;

void MenuBarPresenter::setLocale(const QLocale& locale, const QTimeZone& timeZone) {
    m_locale = locale;
    m_timeZone = timeZone;
    evaluateLastSync(m_clock());
}

TrackerHealth::Kind MenuBarPresenter::healthKind() const {
    return m_appState.health().kind();
}

QString MenuBarPresenter::headerSymbol() const {
    return HealthAppearance::symbolName(healthKind());
}

QString MenuBarPresenter::headerTitle() const {
    return m_appState.health().statusLabel();
}

std::optional<QString> MenuBarPresenter::healthMessage() const {
    const TrackerHealth health = m_appState.health();
    if (health.kind() != TrackerHealth::Kind::actionRequired) {
        return std::nullopt;
    }
    return health.message();
}

std::optional<QString> MenuBarPresenter::confirmationCode() const {
    return m_appState.deviceAuthorizationCode();
}

std::optional<QString> MenuBarPresenter::expiryCountdown() const {
    const auto& expiresAt = m_appState.deviceAuthorizationExpiresAt();
    if (!m_appState.deviceAuthorizationCode() || !expiresAt) {
        return std::nullopt;
    }
    return CountdownText::text(*expiresAt, m_clock());
}

std::optional<QString> MenuBarPresenter::authorizationMessage() const {
    return m_appState.deviceAuthorizationMessage();
}

std::optional<QString> MenuBarPresenter::todayValue() const {
    if (!m_appState.hasCredential()) {
        return std::nullopt;
    }
    const auto& summary = m_appState.todaySummary();
    return summary ? summary->text : QStringLiteral("—");
}

std::optional<QString> MenuBarPresenter::migrationSummary() const {
    return m_appState.migrationSummary();
}

std::optional<QString> MenuBarPresenter::presentedError() const {
    return m_appState.presentedError();
}

MenuBarPresenter::PrimaryGroup MenuBarPresenter::primaryGroup() const {
    if (m_appState.isAuthorizingDevice()) {
        return PrimaryGroup::authorizing;
    }
    if (m_appState.hasCredential() && !m_appState.isCredentialRejected()) {
        return PrimaryGroup::signedIn;
    }
    return PrimaryGroup::signIn;
}

bool MenuBarPresenter::showsRetryTracker() const {
    return primaryGroup() == PrimaryGroup::signedIn &&
           (m_supervisor.crashLocked() || m_supervisor.lastError().has_value());
}

QString MenuBarPresenter::signInTitle() const {
    return m_appState.hasCredential() ? QStringLiteral("Sign In Again") : QStringLiteral("Sign In");
}

bool MenuBarPresenter::showsSignOut() const {
    return m_appState.hasCredential() || m_appState.isAuthorizingDevice();
}

void MenuBarPresenter::setShown(bool shown) {
    if (m_shown == shown) {
        return;
    }
    m_shown = shown;
    if (shown) {
        // The panel may have been hidden for a while: show a fresh age at once.
        evaluateLastSync(m_clock());
    }
    updateTickers();
}

void MenuBarPresenter::openApprovalPage() {
    m_appState.openDeviceAuthorizationPage();
}

void MenuBarPresenter::cancelSignIn() {
    m_appState.cancelDeviceAuthorization();
}

void MenuBarPresenter::signIn() {
    m_appState.beginDeviceAuthorization();
}

void MenuBarPresenter::openDashboard() {
    m_appState.openWebPage(QStringLiteral("/dashboard"));
}

void MenuBarPresenter::retryTracker() {
    if (const auto configuration = m_supervisor.launchConfiguration()) {
        m_supervisor.start(*configuration);
    }
}

void MenuBarPresenter::openSettings() {
    m_appState.openSettings();
}

void MenuBarPresenter::openDiagnostics() {
    if (m_openWindow) {
        m_openWindow(QStringLiteral("diagnostics"));
    }
}

void MenuBarPresenter::signOut() {
    m_appState.signOut();
}

void MenuBarPresenter::quit() {
    m_appState.quit();
}

void MenuBarPresenter::onStateChanged() {
    updateTickers();
    Q_EMIT changed();
}

void MenuBarPresenter::evaluateLastSync(const QDateTime& now) {
    const auto& status = m_supervisor.trackerStatus();
    auto texts = SyncTimeText::format(status ? status->lastSuccessfulUploadAt : std::nullopt, now,
                                      m_locale, m_timeZone);
    if (texts != m_lastSync) {
        m_lastSync = std::move(texts);
        Q_EMIT lastSyncChanged();
    }
}

void MenuBarPresenter::updateTickers() {
    if (m_shown) {
        m_lastSyncTicker->start(lastSyncInterval);
    } else {
        m_lastSyncTicker->stop();
    }
    if (m_shown && m_appState.deviceAuthorizationCode() &&
        m_appState.deviceAuthorizationExpiresAt()) {
        m_countdownTicker->start(countdownInterval);
    } else {
        m_countdownTicker->stop();
    }
}

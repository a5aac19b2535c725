#include "ui/DiagnosticsPresenter.h"

#include "app/AppState.h"
#include "tracker/TrackerSupervising.h"
#include "ui/HealthAppearance.h"

DiagnosticsPresenter::DiagnosticsPresenter(AppState& state, TrackerSupervising& supervisor,
                                           QObject* parent)
    : QObject(parent)
    , m_state(state)
    , m_supervisor(supervisor) {
    // The state's health already follows the supervisor's running, lock and report.
    connect(&m_state, &AppState::healthChanged, this, &DiagnosticsPresenter::changed);
    connect(&m_state, &AppState::presentedErrorChanged, this, &DiagnosticsPresenter::changed);
    connect(&m_supervisor, &TrackerSupervising::trackerStatusChanged, this,
            &DiagnosticsPresenter::changed);
    connect(&m_supervisor, &TrackerSupervising::helperRunningChanged, this,
            &DiagnosticsPresenter::changed);
    connect(&m_supervisor, &TrackerSupervising::lastErrorChanged, this,
            &DiagnosticsPresenter::changed);
}

TrackerHealth DiagnosticsPresenter::health() const {
    return m_state.health();
}

QString DiagnosticsPresenter::healthSymbolName() const {
    return HealthAppearance::symbolName(health().kind());
}

QList<DiagnosticsPresenter::Row> DiagnosticsPresenter::rows() const {
    const std::optional<TrackerStatus> status = m_supervisor.trackerStatus();
    const auto text = [&](QString TrackerStatus::*field) {
        return status ? (*status).*field : QStringLiteral("Unknown");
    };
    const auto count = [&](qint64 TrackerStatus::*field) {
        return QString::number(status ? (*status).*field : 0);
    };
    const auto optionalText = [&](std::optional<QString> TrackerStatus::*field,
                                  const QString& fallback) {
        return status && (*status).*field ? *((*status).*field) : fallback;
    };

    return {
        {QStringLiteral("App version"), m_state.appVersionDescription()},
        {QStringLiteral("State"), health().statusLabel()},
        {QStringLiteral("Helper"),
         m_supervisor.helperRunning() ? QStringLiteral("Running") : QStringLiteral("Stopped")},
        {QStringLiteral("Tracker version"), text(&TrackerStatus::trackerVersion)},
        {QStringLiteral("Device identity"), text(&TrackerStatus::deviceId)},
        {QStringLiteral("Queued heartbeats"), count(&TrackerStatus::queuedHeartbeats)},
        {QStringLiteral("Queued focus segments"), count(&TrackerStatus::queuedActivitySegments)},
        {QStringLiteral("Dropped heartbeats"), count(&TrackerStatus::droppedHeartbeats)},
        {QStringLiteral("Dropped focus segments"), count(&TrackerStatus::droppedActivitySegments)},
        {QStringLiteral("Presence coverage"), text(&TrackerStatus::presenceCoverage)},
        {QStringLiteral("Last successful sync"),
         optionalText(&TrackerStatus::lastSuccessfulUploadAt, QStringLiteral("Never"))},
        {QStringLiteral("Last error kind"),
         optionalText(&TrackerStatus::lastUploadErrorKind, QStringLiteral("None"))},
    };
}

std::optional<QString> DiagnosticsPresenter::errorLine() const {
    if (std::optional<QString> error = m_supervisor.lastError()) {
        return error;
    }
    return m_state.presentedError();
}

void DiagnosticsPresenter::openLogs() {
    m_state.openLogs();
}

void DiagnosticsPresenter::copyDiagnostics() {
    m_state.copyDiagnostics();
}

void DiagnosticsPresenter::refresh() {
    // The returned task runs on by itself; waiting for it here would hold the window up while a
    // slow helper answers.
    m_supervisor.refreshStatus();
}

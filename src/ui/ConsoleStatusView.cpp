#include "ui/ConsoleStatusView.h"

#include "app/AppState.h"

#include <QIODevice>

ConsoleStatusView::ConsoleStatusView(AppState& state, QIODevice& output, QObject* parent)
    : QObject(parent)
    , m_state(state)
    , m_output(output) {
    for (auto changed :
         {&AppState::healthChanged, &AppState::presentedErrorChanged,
          &AppState::deviceAuthorizationCodeChanged, &AppState::deviceAuthorizationMessageChanged,
          &AppState::migrationSummaryChanged, &AppState::todaySummaryChanged}) {
        connect(&m_state, changed, this, &ConsoleStatusView::refresh);
    }
    connect(m_state.supervisor(), &TrackerSupervising::lastErrorChanged, this,
            &ConsoleStatusView::refresh);
    refresh();
}

QString ConsoleStatusView::currentLine() const {
    const TrackerHealth health = m_state.health();
    QStringList parts{QStringLiteral("Vantrel: ") + health.statusLabel()};
    if (health.kind() == TrackerHealth::Kind::actionRequired) {
        parts.append(health.message());
    }
    if (const auto& code = m_state.deviceAuthorizationCode()) {
        parts.append(QStringLiteral("code ") + *code);
    }
    if (const auto& message = m_state.deviceAuthorizationMessage()) {
        parts.append(*message);
    }
    if (const auto& summary = m_state.todaySummary()) {
        parts.append(QStringLiteral("today ") + summary->text);
    }
    if (const auto& summary = m_state.migrationSummary()) {
        parts.append(*summary);
    }
    if (const auto& error = m_state.presentedError()) {
        parts.append(*error);
    } else if (const auto supervisorError = m_state.supervisor()->lastError()) {
        parts.append(*supervisorError);
    }
    return parts.join(QStringLiteral(" — "));
}

void ConsoleStatusView::refresh() {
    const QString line = currentLine();
    if (line == m_lastLine) {
        return;
    }
    m_lastLine = line;
    m_output.write((line + QLatin1Char('\n')).toUtf8());
}

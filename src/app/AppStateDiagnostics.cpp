// The status line, the copyable diagnostics report and the log files.
#include "app/AppState.h"
#include "app/ClipboardWriting.h"
#include "app/WorkspaceOpening.h"
#include "system/InstallationDescribing.h"
#include "tracker/TrackerSupervising.h"

#include <QFileInfo>
#include <QStringList>

namespace {

QString boolText(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

TrackerHealth AppState::health() const {
    if (m_isStarting || m_isAuthorizingDevice) {
        return TrackerHealth::connecting();
    }
    return TrackerHealth::classify(m_hasCredential, m_c.supervisor->helperRunning(),
                                   m_c.supervisor->crashLocked(), m_c.supervisor->trackerStatus());
}

bool AppState::isCredentialRejected() const {
    const std::optional<TrackerStatus> status = m_c.supervisor->trackerStatus();
    return status && status->lastUploadErrorKind == QLatin1String("unauthorized");
}

QString AppState::appVersionDescription() const {
    return m_c.installation->shortVersion().value_or(QStringLiteral("development")) +
           QStringLiteral(" (") + m_c.installation->buildVersion().value_or(QStringLiteral("0")) +
           QLatin1Char(')');
}

QString AppState::diagnosticsReport() const {
    const std::optional<TrackerStatus> status = m_c.supervisor->trackerStatus();
    const auto field = [&status](auto member, const QString& fallback) -> QString {
        return status ? (*status).*member : fallback;
    };
    const auto optionalField = [&status](auto member, const QString& fallback) -> QString {
        return status ? ((*status).*member).value_or(fallback) : fallback;
    };
    const QString unknown = QStringLiteral("unknown");
    return QStringList{
        QStringLiteral("Vantrel diagnostics"),
        QStringLiteral("App version: ") + appVersionDescription(),
        QStringLiteral("State: ") + health().statusLabel(),
        QStringLiteral("Helper running: ") + boolText(m_c.supervisor->helperRunning()),
        QStringLiteral("Tracker version: ") + field(&TrackerStatus::trackerVersion, unknown),
        QStringLiteral("Queued heartbeats: ") +
            QString::number(status ? status->queuedHeartbeats : 0),
        QStringLiteral("Queued activity segments: ") +
            QString::number(status ? status->queuedActivitySegments : 0),
        QStringLiteral("Presence coverage: ") + field(&TrackerStatus::presenceCoverage, unknown),
        QStringLiteral("Last successful upload: ") +
            optionalField(&TrackerStatus::lastSuccessfulUploadAt, QStringLiteral("never")),
        QStringLiteral("Last error kind: ") +
            optionalField(&TrackerStatus::lastUploadErrorKind, QStringLiteral("none")),
        QStringLiteral("Supervisor error: ") +
            m_c.supervisor->lastError().value_or(QStringLiteral("none")),
    }
        .join(QLatin1Char('\n'));
}

void AppState::copyDiagnostics() {
    m_c.clipboard->setText(diagnosticsReport());
}

void AppState::openLogs() {
    QStringList existing;
    for (const QString& log : {m_c.paths.stdoutLogURL(), m_c.paths.stderrLogURL()}) {
        if (QFileInfo::exists(log)) {
            existing.append(log);
        }
    }
    if (!existing.isEmpty()) {
        m_c.workspace->revealFiles(existing);
    } else {
        m_c.workspace->openURL(QUrl::fromLocalFile(m_c.paths.trackerDirectoryURL()));
    }
}

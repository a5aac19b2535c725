#include "app/TrackerHealth.h"

QString TrackerHealth::statusLabel() const {
    switch (m_kind) {
    case Kind::signInRequired:
        return QStringLiteral("Sign in required");
    case Kind::connecting:
        return QStringLiteral("Connecting");
    case Kind::tracking:
        return QStringLiteral("Tracking");
    case Kind::offline:
        return QStringLiteral("Offline — activity is queued");
    case Kind::actionRequired:
        return QStringLiteral("Action required");
    }
    Q_UNREACHABLE();
}

TrackerHealth TrackerHealth::classify(bool hasCredential, bool helperRunning, bool crashLocked,
                                      const std::optional<TrackerStatus>& status) {
    const auto errorKindIs = [&status](const char* kind) {
        return status && status->lastUploadErrorKind == QLatin1String(kind);
    };
    if (!hasCredential) {
        return signInRequired();
    }
    if (crashLocked) {
        return actionRequired(QStringLiteral("Tracker stopped after repeated crashes."));
    }
    if (errorKindIs("unauthorized")) {
        return actionRequired(QStringLiteral("The API key was rejected."));
    }
    if (!helperRunning || !status) {
        return connecting();
    }
    if (errorKindIs("network")) {
        return offline();
    }
    if (status->lastSuccessfulUploadAt) {
        return tracking();
    }
    return connecting();
}

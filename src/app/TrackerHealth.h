#pragma once

#include "tracker/TrackerStatus.h"

#include <QMetaType>
#include <QString>

#include <optional>

// The one-line state of the status line. Derived on every read, never stored.
class TrackerHealth {
public:
    enum class Kind { signInRequired, connecting, tracking, offline, actionRequired };

    static TrackerHealth signInRequired() { return TrackerHealth(Kind::signInRequired); }
    static TrackerHealth connecting() { return TrackerHealth(Kind::connecting); }
    static TrackerHealth tracking() { return TrackerHealth(Kind::tracking); }
    static TrackerHealth offline() { return TrackerHealth(Kind::offline); }
    static TrackerHealth actionRequired(QString message) {
        return TrackerHealth(Kind::actionRequired, std::move(message));
    }

    TrackerHealth()
        : TrackerHealth(Kind::connecting) {}

    Kind kind() const { return m_kind; }
    // Only actionRequired carries a message.
    const QString& message() const { return m_message; }
    QString statusLabel() const;

    // First matching rule wins: no credential, crash lock, rejected key, helper down, no report,
    // network trouble, a successful upload.
    static TrackerHealth classify(bool hasCredential, bool helperRunning, bool crashLocked,
                                  const std::optional<TrackerStatus>& status);

    friend bool operator==(const TrackerHealth&, const TrackerHealth&) = default;

private:
    explicit TrackerHealth(Kind kind, QString message = {})
        : m_kind(kind)
        , m_message(std::move(message)) {}

    Kind m_kind;
    QString m_message;
};

Q_DECLARE_METATYPE(TrackerHealth)

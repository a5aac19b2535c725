#pragma once

#include "system/DesktopNotifying.h"

#include <QDBusConnection>

#include <optional>

class QDBusPendingCall;

// Notices through the desktop's org.freedesktop.Notifications service. Calls never wait: one is
// in flight at a time, and the latest wish is sent when it is answered, so that a replacement
// always knows the identifier it replaces.
class FreedesktopNotifier : public DesktopNotifying {
    Q_OBJECT
public:
    // `desktopEntry` names our desktop file (without ".desktop"), so that the desktop applies
    // its settings for this application to the notices.
    FreedesktopNotifier(QDBusConnection bus, QString applicationName, QString desktopEntry,
                        QObject* parent = nullptr);

    void show(const Notice& notice) override;
    void withdraw() override;

private Q_SLOTS:
    void onActionInvoked(uint id, const QString& actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    void sendNext();
    void await(const QDBusPendingCall& call, bool notifying);

    QDBusConnection m_bus;
    const QString m_applicationName;
    const QString m_desktopEntry;
    // What should be on screen, and what was last asked of the service.
    std::optional<Notice> m_wanted;
    std::optional<Notice> m_sent;
    // The service's identifier of our notice on screen; 0 when none is.
    uint m_id = 0;
    bool m_inFlight = false;
};

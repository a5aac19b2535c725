#include "system/FreedesktopNotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");
const QString actionKey = QStringLiteral("act");

} // namespace

FreedesktopNotifier::FreedesktopNotifier(QDBusConnection bus, QString applicationName,
                                         QString desktopEntry, QObject* parent)
    : DesktopNotifying(parent)
    , m_bus(std::move(bus))
    , m_applicationName(std::move(applicationName))
    , m_desktopEntry(std::move(desktopEntry)) {
    m_bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                  SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                  SLOT(onNotificationClosed(uint, uint)));
}

void FreedesktopNotifier::show(const Notice& notice) {
    m_wanted = notice;
    // The same notice asked for again is still on screen, or was dismissed by the user.
    m_sent.reset();
    sendNext();
}

void FreedesktopNotifier::withdraw() {
    m_wanted.reset();
    sendNext();
}

void FreedesktopNotifier::sendNext() {
    if (m_inFlight || !m_bus.isConnected()) {
        return;
    }
    if (m_wanted && m_wanted != m_sent) {
        m_sent = m_wanted;
        QDBusMessage call =
            QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
        const QVariantMap hints{{QStringLiteral("desktop-entry"), m_desktopEntry}};
        call << m_applicationName << m_id << m_desktopEntry << m_wanted->summary << m_wanted->body
             << QStringList{actionKey, m_wanted->actionLabel} << hints << qint32(-1);
        await(m_bus.asyncCall(call), true);
    } else if (!m_wanted && m_id != 0) {
        m_sent.reset();
        QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface,
                                                           QStringLiteral("CloseNotification"));
        call << std::exchange(m_id, 0u);
        await(m_bus.asyncCall(call), false);
    }
}

void FreedesktopNotifier::await(const QDBusPendingCall& call, bool notifying) {
    m_inFlight = true;
    auto* watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, notifying](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                m_inFlight = false;
                // Without a service the error is the whole answer: nothing is on screen.
                const QDBusPendingReply<uint> reply = *finished;
                if (notifying) {
                    m_id = reply.isValid() ? reply.value() : 0;
                }
                sendNext();
            });
}

void FreedesktopNotifier::onActionInvoked(uint id, const QString& key) {
    if (id != 0 && id == m_id && key == actionKey) {
        Q_EMIT actionInvoked();
    }
}

void FreedesktopNotifier::onNotificationClosed(uint id, uint /*reason*/) {
    // Dismissed, expired or closed after its button: it is gone, and is not shown again unless
    // asked for anew.
    if (id != 0 && id == m_id) {
        m_id = 0;
    }
}

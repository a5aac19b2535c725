#include "system/NetworkManagerReturnWatcher.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include <utility>

namespace {

const QString service = QStringLiteral("org.freedesktop.NetworkManager");
const QString path = QStringLiteral("/org/freedesktop/NetworkManager");
// NetworkManager's NM_STATE_UNKNOWN and NM_STATE_CONNECTED_GLOBAL.
constexpr uint unknownState = 0;
constexpr uint connectedGlobally = 70;

} // namespace

NetworkManagerReturnWatcher::NetworkManagerReturnWatcher(QDBusConnection bus, QObject* parent)
    : NetworkReturnWatching(parent) {
    // Matched on the well-known name, so only NetworkManager's own signal counts.
    bus.connect(service, path, service, QStringLiteral("StateChanged"), this,
                SLOT(onStateChanged(uint)));
    // The state at start, so that a first change straight to connected still counts as a return.
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << service << QStringLiteral("State");
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<QDBusVariant> reply = *call;
                bool known = false;
                const uint state = reply.isValid() ? reply.value().variant().toUInt(&known) : 0;
                if (known && !m_state) {
                    m_state = state; // a change signalled meanwhile is newer
                }
            });
}

void NetworkManagerReturnWatcher::onStateChanged(uint state) {
    const std::optional<uint> previous = std::exchange(m_state, state);
    if (state == connectedGlobally && previous && *previous != unknownState &&
        *previous != connectedGlobally) {
        Q_EMIT returned();
    }
}

#include "ui/StatusNotifierTrayHostWatcher.h"

#include <QDBusConnectionInterface>

StatusNotifierTrayHostWatcher::StatusNotifierTrayHostWatcher(QDBusConnection bus, QObject* parent)
    : TrayHostWatching(parent)
    , m_watcher(QLatin1String(watcherService), bus, QDBusServiceWatcher::WatchForOwnerChange) {
    // Never QSystemTrayIcon::isSystemTrayAvailable(): Qt would keep its first answer for good.
    m_available = bus.isConnected() && bus.interface() &&
                  bus.interface()->isServiceRegistered(QLatin1String(watcherService)).value();
    connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString& oldOwner, const QString& newOwner) {
                onOwnerChanged(oldOwner, newOwner);
            });
}

void StatusNotifierTrayHostWatcher::onOwnerChanged(const QString& oldOwner,
                                                   const QString& newOwner) {
    if (m_available && !oldOwner.isEmpty()) {
        m_available = false;
        Q_EMIT availabilityChanged(false);
    }
    if (!newOwner.isEmpty()) {
        m_available = true;
        Q_EMIT availabilityChanged(true);
    }
}

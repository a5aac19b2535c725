#include "ui/StatusNotifierTrayHostWatcher.h"

#include <QDBusConnectionInterface>
#include <QGuiApplication>
#include <QSystemTrayIcon>

StatusNotifierTrayHostWatcher::StatusNotifierTrayHostWatcher(QDBusConnection bus, QObject* parent)
    : TrayHostWatching(parent)
    , m_watcher(QLatin1String(watcherService), bus,
                QDBusServiceWatcher::WatchForRegistration |
                    QDBusServiceWatcher::WatchForUnregistration) {
    const QString service = QLatin1String(watcherService);
    const bool hasWatcher = bus.isConnected() && bus.interface() &&
                            bus.interface()->isServiceRegistered(service).value();
    if (!hasWatcher && QGuiApplication::platformName() == QLatin1String("xcb")) {
        m_xembed = QSystemTrayIcon::isSystemTrayAvailable();
    }
    m_available = hasWatcher || m_xembed;
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this,
            [this] { setAvailable(true); });
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { setAvailable(m_xembed); });
}

void StatusNotifierTrayHostWatcher::setAvailable(bool available) {
    if (m_available != available) {
        m_available = available;
        Q_EMIT availabilityChanged(available);
    }
}

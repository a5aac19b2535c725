#pragma once

#include "ui/TrayHostWatching.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>

// A StatusNotifierItem tray exists while a StatusNotifierWatcher owns its name on the session
// bus. A watcher that hands the name straight to a new process is a restart: it is reported as
// gone and back, so the item registers anew with the new owner.
class StatusNotifierTrayHostWatcher : public TrayHostWatching {
    Q_OBJECT
public:
    static constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";

    explicit StatusNotifierTrayHostWatcher(QDBusConnection bus, QObject* parent = nullptr);

    bool isAvailable() const override { return m_available; }

private:
    void onOwnerChanged(const QString& oldOwner, const QString& newOwner);

    QDBusServiceWatcher m_watcher;
    bool m_available = false;
};

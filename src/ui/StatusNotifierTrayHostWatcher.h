#pragma once

#include "ui/TrayHostWatching.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>

// A tray exists while a StatusNotifierWatcher is on the session bus, or, on X11 without one, when
// Qt finds an XEmbed tray at start-up.
//
// Qt decides once per process whether a D-Bus tray exists, so it is asked only when the watcher
// is already on the bus or when there is no session bus to watch; the watcher's arrival and
// departure are followed here instead.
class StatusNotifierTrayHostWatcher : public TrayHostWatching {
    Q_OBJECT
public:
    static constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";

    explicit StatusNotifierTrayHostWatcher(QDBusConnection bus, QObject* parent = nullptr);

    bool isAvailable() const override { return m_available; }

private:
    void setAvailable(bool available);

    QDBusServiceWatcher m_watcher;
    bool m_xembed = false;
    bool m_available = false;
};

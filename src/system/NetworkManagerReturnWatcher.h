#pragma once

#include "system/NetworkReturnWatching.h"

#include <QDBusConnection>

#include <optional>

// Follows NetworkManager's overall state on the system bus. A return is a move to full
// connectivity from a state NetworkManager reported as short of it; a state not known yet, or
// NetworkManager's own "unknown", is only a starting point. Where NetworkManager does not run,
// nothing is ever reported and the periodic refreshes alone catch up.
class NetworkManagerReturnWatcher : public NetworkReturnWatching {
    Q_OBJECT
public:
    explicit NetworkManagerReturnWatcher(QDBusConnection bus, QObject* parent = nullptr);

private Q_SLOTS:
    void onStateChanged(uint state);

private:
    std::optional<uint> m_state;
};

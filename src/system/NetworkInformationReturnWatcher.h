#pragma once

#include "system/NetworkReturnWatching.h"

#include <QNetworkInformation>

// Follows Qt's network information backend: on Debian's Qt the GLib one (GNetworkMonitor, which
// asks NetworkManager where it runs and the kernel otherwise), else NetworkManager's. A return is a
// move to "online" from a state the backend reported as short of it; leaving "unknown" is the
// backend finding its feet, not a return. Without a backend nothing is ever reported.
class NetworkInformationReturnWatcher : public NetworkReturnWatching {
    Q_OBJECT
public:
    explicit NetworkInformationReturnWatcher(QObject* parent = nullptr);

private:
    void onReachabilityChanged(QNetworkInformation::Reachability reachability);

    QNetworkInformation::Reachability m_reachability = QNetworkInformation::Reachability::Unknown;
};

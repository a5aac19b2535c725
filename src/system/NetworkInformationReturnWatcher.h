#pragma once

#include "system/NetworkReturnWatching.h"

#include <QNetworkInformation>

// Follows Qt's network information backend (NetworkManager on Linux). A return is a move to
// "online" from a state the backend reported as short of it; leaving "unknown" is the backend
// finding its feet, not a return. Without a backend nothing is ever reported.
class NetworkInformationReturnWatcher : public NetworkReturnWatching {
    Q_OBJECT
public:
    explicit NetworkInformationReturnWatcher(QObject* parent = nullptr);

    // Whether a backend could be loaded, for the diagnostics of whoever wonders.
    bool isFollowing() const { return m_following; }

private:
    void onReachabilityChanged(QNetworkInformation::Reachability reachability);

    QNetworkInformation::Reachability m_reachability = QNetworkInformation::Reachability::Unknown;
    bool m_following = false;
};

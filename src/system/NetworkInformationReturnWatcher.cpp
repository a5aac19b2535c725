#include "system/NetworkInformationReturnWatcher.h"

NetworkInformationReturnWatcher::NetworkInformationReturnWatcher(QObject* parent)
    : NetworkReturnWatching(parent) {
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
        return;
    }
    QNetworkInformation* information = QNetworkInformation::instance();
    m_reachability = information->reachability();
    connect(information, &QNetworkInformation::reachabilityChanged, this,
            &NetworkInformationReturnWatcher::onReachabilityChanged);
}

void NetworkInformationReturnWatcher::onReachabilityChanged(
    QNetworkInformation::Reachability reachability) {
    using Reachability = QNetworkInformation::Reachability;
    const Reachability previous = std::exchange(m_reachability, reachability);
    if (reachability == Reachability::Online && previous != Reachability::Online &&
        previous != Reachability::Unknown) {
        Q_EMIT returned();
    }
}

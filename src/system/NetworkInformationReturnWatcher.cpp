#include "system/NetworkInformationReturnWatcher.h"

NetworkInformationReturnWatcher::NetworkInformationReturnWatcher(QObject* parent)
    : NetworkReturnWatching(parent) {
    m_following =
        QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability);
    QNetworkInformation* information = QNetworkInformation::instance();
    if (!m_following || !information) {
        m_following = false;
        return;
    }
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

#pragma once

#include "api/DeviceAuthorizationTransporting.h"

class QNetworkAccessManager;

// Sends through the application's one QNetworkAccessManager, which the composition root owns and
// keeps alive longer than any request.
class NetworkAccessDeviceAuthorizationTransport : public DeviceAuthorizationTransporting {
public:
    explicit NetworkAccessDeviceAuthorizationTransport(QNetworkAccessManager* manager)
        : m_manager(manager) {}

    QCoro::Task<TransportResponse> send(TransportRequest request, CancellationToken token) override;

private:
    QNetworkAccessManager* m_manager;
};

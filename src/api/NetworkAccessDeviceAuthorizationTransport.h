#pragma once

#include "api/DeviceAuthorizationTransporting.h"
#include "api/ServiceRequest.h"

#include <chrono>

class QNetworkAccessManager;

// Sends through the application's one QNetworkAccessManager, which the composition root owns and
// keeps alive longer than any request. Each exchange ends as a failure `deadline` after it began.
class NetworkAccessDeviceAuthorizationTransport : public DeviceAuthorizationTransporting {
public:
    explicit NetworkAccessDeviceAuthorizationTransport(
        QNetworkAccessManager* manager,
        std::chrono::milliseconds deadline = ServiceRequest::deadline)
        : m_manager(manager)
        , m_deadline(deadline) {}

    QCoro::Task<TransportResponse> send(TransportRequest request, CancellationToken token) override;

private:
    QNetworkAccessManager* m_manager;
    std::chrono::milliseconds m_deadline;
};

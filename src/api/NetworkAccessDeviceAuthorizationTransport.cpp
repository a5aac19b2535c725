#include "api/NetworkAccessDeviceAuthorizationTransport.h"

#include "api/NetworkAccessExchange.h"
#include "api/ServiceRequest.h"

QCoro::Task<TransportResponse>
NetworkAccessDeviceAuthorizationTransport::send(TransportRequest request, CancellationToken token) {
    return NetworkAccessExchange::perform(m_manager, std::move(request), std::move(token),
                                          ServiceRequest::maximumBodyBytes, m_deadline);
}

#pragma once

#include "api/TransportRequest.h"
#include "api/TransportResponse.h"
#include "core/CancellationToken.h"

#include <QCoroTask>

// Performs one exchange of the device authorization protocol. It throws whatever the platform
// reports (PlatformError, or CancellationError once `token` is cancelled) and interprets neither
// status codes nor bodies.
class DeviceAuthorizationTransporting {
public:
    virtual ~DeviceAuthorizationTransporting() = default;
    virtual QCoro::Task<TransportResponse> send(TransportRequest request,
                                                CancellationToken token) = 0;
};

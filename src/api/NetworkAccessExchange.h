#pragma once

#include "api/TransportRequest.h"
#include "api/TransportResponse.h"
#include "core/CancellationToken.h"

#include <QCoroTask>

#include <chrono>

class QNetworkAccessManager;

// One exchange over a QNetworkAccessManager, shared by the service transports. The body is read
// as it streams in and the reply is aborted as soon as it holds more than `bodyLimit` bytes, so
// an endless body costs no more memory than the limit; the response then carries `bodyLimit` + 1
// bytes. Cancelling `token` aborts the reply; the request's own transfer timeout ends a stalled
// one, and `deadline` after sending ends one that still trickles in. Throws CancellationError
// after cancellation, and PlatformError past the deadline and for every other failure that
// produced no HTTP response; an HTTP error status is a response, not a failure.
class NetworkAccessExchange {
public:
    static QCoro::Task<TransportResponse> perform(QNetworkAccessManager* manager,
                                                  TransportRequest request, CancellationToken token,
                                                  qsizetype bodyLimit,
                                                  std::chrono::milliseconds deadline);
};

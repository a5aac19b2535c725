#pragma once

#include <QByteArray>

// What came back from one exchange, uninterpreted. A transport stops reading one byte past the
// largest body a client accepts, so an oversized `body` still shows that it was too long without
// having been held in full.
struct TransportResponse {
    QByteArray body;
    // False when the exchange produced no HTTP status line; `statusCode` is then meaningless.
    bool isHTTPResponse = false;
    int statusCode = 0;
};

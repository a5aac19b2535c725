#pragma once

#include "api/DeviceAuthorizationTransporting.h"
#include "api/TodaySummaryTransporting.h"

#include <QList>
#include <QObject>

#include <deque>
#include <exception>
#include <variant>

// Serves both clients. Each send is recorded and answered on a later turn of the event loop with
// the next queued outcome (the last one repeats); with `hang` set it answers only when its token
// is cancelled, then with CancellationError as the real transport does.
class FakeServiceTransport : public QObject,
                             public DeviceAuthorizationTransporting,
                             public TodaySummaryTransporting {
    Q_OBJECT
public:
    using Outcome = std::variant<TransportResponse, std::exception_ptr>;

    QCoro::Task<TransportResponse> send(TransportRequest request, CancellationToken token) override;

    static TransportResponse http(int statusCode, QByteArray body) {
        return {std::move(body), true, statusCode};
    }

    std::deque<Outcome> outcomes;
    bool hang = false;
    QList<TransportRequest> requests;
};

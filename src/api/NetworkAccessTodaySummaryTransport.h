#pragma once

#include "api/TodaySummaryTransporting.h"

class QNetworkAccessManager;

// Sends through the application's one QNetworkAccessManager, which the composition root owns and
// keeps alive longer than any request.
class NetworkAccessTodaySummaryTransport : public TodaySummaryTransporting {
public:
    explicit NetworkAccessTodaySummaryTransport(QNetworkAccessManager* manager)
        : m_manager(manager) {}

    QCoro::Task<TransportResponse> send(TransportRequest request, CancellationToken token) override;

private:
    QNetworkAccessManager* m_manager;
};

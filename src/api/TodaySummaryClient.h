#pragma once

#include "api/TodaySummaryFetching.h"

class TodaySummaryTransporting;

// One authenticated request for today's total. The transport must outlive every call.
class TodaySummaryClient : public TodaySummaryFetching {
public:
    explicit TodaySummaryClient(TodaySummaryTransporting* transport)
        : m_transport(transport) {}

    QCoro::Task<TodaySummary> fetchTodaySummary(QString serverURL, QString apiKey,
                                                CancellationToken token) override;

    // Keys match after snake_case becomes camelCase, so "grand_total" and "grandTotal" both
    // name the same field. Throws TodaySummaryClientError::invalidResponse.
    static TodaySummary decode(const QByteArray& body);

private:
    TodaySummaryTransporting* m_transport;
};

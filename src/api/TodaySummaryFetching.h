#pragma once

#include "core/CancellationToken.h"
#include "core/TodaySummary.h"

#include <QCoroTask>
#include <QString>

// Fetches today's total for the signed-in user. Throws TodaySummaryClientError; cancelling
// `token` aborts the exchange, which surfaces as networkUnavailable. The base URL stays text so
// that its scheme can be checked literally.
class TodaySummaryFetching {
public:
    virtual ~TodaySummaryFetching() = default;
    virtual QCoro::Task<TodaySummary> fetchTodaySummary(QString serverURL, QString apiKey,
                                                        CancellationToken token) = 0;
};

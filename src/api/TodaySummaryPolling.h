#pragma once

#include "core/TodaySummary.h"

#include <QString>

#include <functional>

// Keeps today's total fresh: one loop at most, failures silent.
class TodaySummaryPolling {
public:
    virtual ~TodaySummaryPolling() = default;

    // Cancels any running loop and starts a new one; `onUpdate` runs on the GUI thread with every
    // summary fetched successfully.
    virtual void start(QString serverURL, QString apiKey,
                       std::function<void(const TodaySummary&)> onUpdate) = 0;
    virtual void stop() = 0;
    // A running loop fetches at once and goes on at its usual pace from there; a stopped one
    // stays stopped.
    virtual void refreshNow() = 0;
};

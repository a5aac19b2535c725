#pragma once

#include "api/TodaySummaryPolling.h"
#include "core/TaskHandle.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>

#include <optional>

class SleepScheduling;
class TodaySummaryFetching;

// Fetches at once, then every `refreshInterval` seconds, handing each good summary to the
// callback. Failures are dropped and retried only at the normal pace. The loop holds the poller
// weakly and ends on a later turn of the event loop after stop() or the poller's destruction, so
// the fetcher and the sleeper must outlive the poller by at least that turn.
class TodaySummaryPoller : public QObject, public TodaySummaryPolling {
    Q_OBJECT
public:
    TodaySummaryPoller(TodaySummaryFetching* fetcher, SleepScheduling* sleeper,
                       double refreshInterval);
    ~TodaySummaryPoller() override;

    void start(QString serverURL, QString apiKey,
               std::function<void(const TodaySummary&)> onUpdate) override;
    void stop() override;
    void refreshNow() override;

    bool isRunning() const { return m_task.has_value(); }

private:
    static QCoro::Task<void> refreshLoop(QPointer<TodaySummaryPoller> self, CancellationToken token,
                                         QString serverURL, QString apiKey,
                                         std::function<void(const TodaySummary&)> onUpdate);

    TodaySummaryFetching* m_fetcher;
    SleepScheduling* m_sleeper;
    double m_refreshInterval;
    std::optional<TaskHandle> m_task;
    // What the running loop was started with, for refreshNow().
    QString m_serverURL;
    QString m_apiKey;
    std::function<void(const TodaySummary&)> m_onUpdate;
};

#include "api/TodaySummaryPoller.h"

#include "api/TodaySummaryFetching.h"
#include "core/SleepScheduling.h"

TodaySummaryPoller::TodaySummaryPoller(TodaySummaryFetching* fetcher, SleepScheduling* sleeper,
                                       double refreshInterval)
    : m_fetcher(fetcher)
    , m_sleeper(sleeper)
    , m_refreshInterval(refreshInterval) {}

TodaySummaryPoller::~TodaySummaryPoller() {
    // Wakes a pending sleep and aborts a fetch in flight instead of waiting for the next check.
    stop();
}

void TodaySummaryPoller::start(QString serverURL, QString apiKey,
                               std::function<void(const TodaySummary&)> onUpdate) {
    stop();
    const TaskHandle handle;
    m_task = handle;
    m_serverURL = serverURL;
    m_apiKey = apiKey;
    m_onUpdate = onUpdate;
    refreshLoop(QPointer<TodaySummaryPoller>(this), handle.token(), std::move(serverURL),
                std::move(apiKey), std::move(onUpdate));
}

void TodaySummaryPoller::refreshNow() {
    // A new loop, so that the next regular fetch counts from this one.
    if (m_task) {
        start(m_serverURL, m_apiKey, m_onUpdate);
    }
}

void TodaySummaryPoller::stop() {
    if (m_task) {
        m_task->cancel();
        m_task.reset();
    }
    m_apiKey.clear();
    m_onUpdate = nullptr;
}

QCoro::Task<void>
TodaySummaryPoller::refreshLoop(QPointer<TodaySummaryPoller> self, CancellationToken token,
                                QString serverURL, QString apiKey,
                                std::function<void(const TodaySummary&)> onUpdate) {
    const auto ended = [&] { return token.isCancelled() || !self; };
    while (!ended()) {
        std::optional<TodaySummary> summary;
        try {
            summary = co_await self->m_fetcher->fetchTodaySummary(serverURL, apiKey, token);
        } catch (...) {
            // The menu keeps the last good figure.
        }
        // A fetch that was already answered when the loop was stopped must not reach the menu.
        if (ended()) {
            co_return;
        }
        if (summary) {
            onUpdate(*summary);
            if (ended()) {
                co_return;
            }
        }
        co_await self->m_sleeper->sleep(self->m_refreshInterval, token);
    }
}

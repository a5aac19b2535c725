#pragma once

#include <QObject>

class NetworkReturnWatching;
class SessionResumeWatching;
class TodaySummaryPolling;
class TrackerSupervising;

// After a wake or a network return the status and today's total on show may be minutes old:
// reads both at once instead of waiting for their next turn, which then follows at the usual
// pace. Nothing is read that would not be read anyway: no status while no helper is
// supervised, no total while the poller is stopped.
class ResumeRefresher : public QObject {
    Q_OBJECT
public:
    // Everything must outlive the refresher.
    ResumeRefresher(SessionResumeWatching& session, NetworkReturnWatching& network,
                    TrackerSupervising& supervisor, TodaySummaryPolling& todaySummaryPoller,
                    QObject* parent = nullptr);

    void refresh();

private:
    TrackerSupervising& m_supervisor;
    TodaySummaryPolling& m_todaySummaryPoller;
};

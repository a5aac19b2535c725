#include "app/ResumeRefresher.h"

#include "api/TodaySummaryPolling.h"
#include "system/NetworkReturnWatching.h"
#include "system/SessionResumeWatching.h"
#include "tracker/TrackerSupervising.h"

ResumeRefresher::ResumeRefresher(SessionResumeWatching& session, NetworkReturnWatching& network,
                                 TrackerSupervising& supervisor,
                                 TodaySummaryPolling& todaySummaryPoller, QObject* parent)
    : QObject(parent)
    , m_supervisor(supervisor)
    , m_todaySummaryPoller(todaySummaryPoller) {
    connect(&session, &SessionResumeWatching::resumed, this, &ResumeRefresher::refresh);
    connect(&network, &NetworkReturnWatching::returned, this, &ResumeRefresher::refresh);
}

void ResumeRefresher::refresh() {
    // Without a configuration a refresh would clear the report start-up read for the
    // diagnostics.
    if (m_supervisor.launchConfiguration()) {
        m_supervisor.refreshStatus();
    }
    m_todaySummaryPoller.refreshNow();
}

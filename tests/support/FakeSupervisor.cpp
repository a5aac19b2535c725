#include "support/FakeSupervisor.h"

#include "core/CancellableSleep.h"

void FakeSupervisor::start(const LaunchConfiguration& configuration) {
    starts.append(configuration);
    m_configuration = configuration;
    setHelperRunning(true);
}

void FakeSupervisor::stop(bool clearConfiguration) {
    stops.append(clearConfiguration);
    if (clearConfiguration) {
        m_configuration.reset();
    }
    setHelperRunning(false);
}

QCoro::Task<void> FakeSupervisor::refreshStatus() {
    if (m_configuration) {
        co_await refreshStatus(m_configuration->executableURL, m_configuration->configURL);
    }
}

QCoro::Task<void> FakeSupervisor::refreshStatus(QString executableURL, QString configURL) {
    refreshes.append({executableURL, configURL});
    // One turn of the event loop, as a status command that runs elsewhere would take.
    co_await cancellableSleep(std::chrono::milliseconds(1), CancellationToken());
    if (statusOnRefresh) {
        setTrackerStatus(statusOnRefresh);
        setLastError(std::nullopt);
    }
}

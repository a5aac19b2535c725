#pragma once

#include "tracker/TrackerSupervising.h"

#include <QList>

#include <utility>

// A supervisor that records what it is asked and publishes what the test sets. Status refreshes
// complete on a later turn of the event loop, like the real one.
class FakeSupervisor : public TrackerSupervising {
    Q_OBJECT
public:
    std::optional<TrackerStatus> trackerStatus() const override { return m_status; }
    bool helperRunning() const override { return m_running; }
    bool crashLocked() const override { return m_locked; }
    std::optional<QString> lastError() const override { return m_lastError; }
    std::optional<LaunchConfiguration> launchConfiguration() const override {
        return m_configuration;
    }

    void start(const LaunchConfiguration& configuration) override;
    void stop(bool clearConfiguration) override;
    QCoro::Task<void> refreshStatus() override;
    QCoro::Task<void> refreshStatus(QString executableURL, QString configURL) override;

    void setTrackerStatus(std::optional<TrackerStatus> status) {
        m_status = std::move(status);
        Q_EMIT trackerStatusChanged(); // a fresh report is news even when it reads the same
    }
    void setHelperRunning(bool running) {
        publish(m_running, running, &FakeSupervisor::helperRunningChanged);
    }
    void setCrashLocked(bool locked) {
        publish(m_locked, locked, &FakeSupervisor::crashLockedChanged);
    }
    void setLastError(std::optional<QString> error) {
        publish(m_lastError, std::move(error), &FakeSupervisor::lastErrorChanged);
    }

    // What the next explicit refresh publishes, when set.
    std::optional<TrackerStatus> statusOnRefresh;

    QList<LaunchConfiguration> starts;
    QList<bool> stops;
    QList<std::pair<QString, QString>> refreshes;

private:
    template <typename T>
    void publish(T& member, T value, void (FakeSupervisor::*changed)()) {
        if (member != value) {
            member = std::move(value);
            Q_EMIT(this->*changed)();
        }
    }

    std::optional<TrackerStatus> m_status;
    bool m_running = false;
    bool m_locked = false;
    std::optional<QString> m_lastError;
    std::optional<LaunchConfiguration> m_configuration;
};

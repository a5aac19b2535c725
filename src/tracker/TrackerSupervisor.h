#pragma once

#include "core/TaskHandle.h"
#include "tracker/TrackerProcessRunning.h"
#include "tracker/TrackerSupervising.h"

#include <chrono>
#include <memory>
#include <optional>

class SleepScheduling;

// Keeps one tracker helper alive: launches it through the runner, restarts it after unexpected
// exits with delays of 1, 2, 4, … seconds (at most 30), gives up after `maximumRestartAttempts`
// restarts since the last start or stop (the crash lock), and reads its status report now and
// then every polling interval.
//
// Status commands never overlap: a refresh that arrives while a command for the same helper and
// configuration file is in flight shares that command's result instead of starting another, and
// one for a different pair waits for the running command to finish first.
class TrackerSupervisor : public TrackerSupervising {
    Q_OBJECT
public:
    static constexpr std::chrono::seconds defaultStatusPollingInterval{5};

    // `runner` and `sleeper` must outlive the supervisor and every task it starts.
    TrackerSupervisor(TrackerProcessRunning& runner, SleepScheduling& sleeper,
                      int maximumRestartAttempts,
                      std::chrono::nanoseconds statusPollingInterval = defaultStatusPollingInterval,
                      QObject* parent = nullptr);
    ~TrackerSupervisor() override;

    std::optional<TrackerStatus> trackerStatus() const override { return m_trackerStatus; }
    bool helperRunning() const override { return m_helperRunning; }
    bool crashLocked() const override { return m_crashLocked; }
    std::optional<QString> lastError() const override { return m_lastError; }
    std::optional<LaunchConfiguration> launchConfiguration() const override {
        return m_launchConfiguration;
    }

    void start(const LaunchConfiguration& configuration) override;
    void stop(bool clearConfiguration) override;
    QCoro::Task<void> refreshStatus() override;
    QCoro::Task<void> refreshStatus(QString executableURL, QString configURL) override;

private:
    class StatusRead;

    void launchHelper();
    void handleExit(quint64 launch, qint32 status);
    void scheduleRestart();
    void startStatusPolling();
    QCoro::Task<void> restartAfter(double seconds, CancellationToken token);
    QCoro::Task<void> pollStatus(CancellationToken token);
    QCoro::Task<std::shared_ptr<StatusRead>> readStatus(QString executableURL, QString configURL);
    // Publishes a finished read: the report, or the error as the last error. True for a report.
    bool publish(const StatusRead& read);

    void setTrackerStatus(const std::optional<TrackerStatus>& status);
    void setHelperRunning(bool running);
    void setCrashLocked(bool locked);
    void setLastError(const std::optional<QString>& error);

    TrackerProcessRunning& m_runner;
    SleepScheduling& m_sleeper;
    const int m_maximumRestartAttempts;
    const std::chrono::nanoseconds m_statusPollingInterval;

    std::optional<TrackerStatus> m_trackerStatus;
    bool m_helperRunning = false;
    bool m_crashLocked = false;
    std::optional<QString> m_lastError;

    std::unique_ptr<TrackerProcessHandling> m_processHandle;
    // Numbers every launch, so that an exit report can tell whether its helper is still the
    // current one.
    quint64 m_launchCount = 0;
    quint64 m_currentLaunch = 0;
    std::optional<TaskHandle> m_statusTask;
    std::optional<TaskHandle> m_restartTask;
    bool m_intendedStop = false;
    int m_restartAttempts = 0;
    std::optional<LaunchConfiguration> m_launchConfiguration;
    std::shared_ptr<StatusRead> m_statusRead;
};

#include "tracker/TrackerSupervisor.h"

#include "core/CancellableSleep.h"
#include "core/SleepScheduling.h"
#include "core/VantrelError.h"

#include <QCoroSignal>
#include <QPointer>

#include <algorithm>
#include <cmath>

// One status command and its outcome, shared by every refresh that waits for it.
class TrackerSupervisor::StatusRead : public QObject {
    Q_OBJECT
public:
    StatusRead(QString executable, QString config)
        : executableURL(std::move(executable))
        , configURL(std::move(config)) {}

    bool reads(const QString& executable, const QString& config) const {
        return executableURL == executable && configURL == config;
    }

    const QString executableURL;
    const QString configURL;
    std::optional<TrackerStatus> status;
    std::exception_ptr error;

Q_SIGNALS:
    void finished();
};

namespace {

constexpr double longestRestartDelaySeconds = 30;

} // namespace

TrackerSupervisor::TrackerSupervisor(TrackerProcessRunning& runner, SleepScheduling& sleeper,
                                     int maximumRestartAttempts,
                                     std::chrono::nanoseconds statusPollingInterval,
                                     QObject* parent)
    : TrackerSupervising(parent)
    , m_runner(runner)
    , m_sleeper(sleeper)
    , m_maximumRestartAttempts(maximumRestartAttempts)
    , m_statusPollingInterval(statusPollingInterval) {}

TrackerSupervisor::~TrackerSupervisor() {
    // The tasks hold the supervisor weakly and would end on their own; cancelling them also
    // wakes their sleeps now. The handle's release closes the helper's standard input.
    if (m_statusTask) {
        m_statusTask->cancel();
    }
    if (m_restartTask) {
        m_restartTask->cancel();
    }
}

void TrackerSupervisor::start(const LaunchConfiguration& configuration) {
    stop(false);
    m_launchConfiguration = configuration;
    m_intendedStop = false;
    setCrashLocked(false);
    m_restartAttempts = 0;
    launchHelper();
    startStatusPolling();
}

void TrackerSupervisor::stop(bool clearConfiguration) {
    m_intendedStop = true;
    if (m_statusTask) {
        m_statusTask->cancel();
        m_statusTask.reset();
    }
    if (m_restartTask) {
        m_restartTask->cancel();
        m_restartTask.reset();
    }
    if (m_processHandle) {
        m_processHandle->terminate();
        m_processHandle.reset();
    }
    setHelperRunning(false);
    setCrashLocked(false);
    m_restartAttempts = 0;
    if (clearConfiguration) {
        m_launchConfiguration.reset();
    }
}

void TrackerSupervisor::launchHelper() {
    if (!m_launchConfiguration) {
        return;
    }
    if (m_processHandle) {
        m_processHandle->terminate();
        m_processHandle.reset();
    }
    const quint64 launch = ++m_launchCount;
    try {
        m_processHandle = m_runner.startHelper(*m_launchConfiguration,
                                               [self = QPointer(this), launch](qint32 status) {
                                                   if (self) {
                                                       self->handleExit(launch, status);
                                                   }
                                               });
        m_currentLaunch = launch;
        setHelperRunning(m_processHandle->isRunning());
        setLastError(std::nullopt);
    } catch (...) {
        setHelperRunning(false);
        setLastError(VantrelError::describe(std::current_exception()));
        scheduleRestart();
    }
}

void TrackerSupervisor::handleExit(quint64 launch, qint32 status) {
    // The exit of a helper that was stopped or replaced arrives late, possibly after a new one
    // has started; it must not touch the new one's state.
    if (!m_processHandle || launch != m_currentLaunch) {
        return;
    }
    m_processHandle.reset();
    setHelperRunning(false);
    if (!m_intendedStop) {
        setLastError(QStringLiteral("Tracker helper exited with status ") +
                     QString::number(status) + QLatin1Char('.'));
        scheduleRestart();
    }
}

void TrackerSupervisor::scheduleRestart() {
    const int attempts = m_restartAttempts;
    if (attempts >= m_maximumRestartAttempts) {
        setCrashLocked(true);
        return;
    }
    const double delay = std::min(std::ldexp(1.0, attempts), longestRestartDelaySeconds);
    m_restartAttempts = attempts + 1;
    if (m_restartTask) {
        m_restartTask->cancel();
    }
    m_restartTask.emplace();
    restartAfter(delay, m_restartTask->token());
}

QCoro::Task<void> TrackerSupervisor::restartAfter(double seconds, CancellationToken token) {
    QPointer self(this);
    co_await m_sleeper.sleep(seconds, token);
    if (!self || token.isCancelled() || self->m_intendedStop) {
        co_return;
    }
    self->launchHelper();
}

void TrackerSupervisor::startStatusPolling() {
    if (m_statusTask) {
        m_statusTask->cancel();
    }
    refreshStatus();
    m_statusTask.emplace();
    pollStatus(m_statusTask->token());
}

QCoro::Task<void> TrackerSupervisor::pollStatus(CancellationToken token) {
    QPointer self(this);
    const std::chrono::nanoseconds interval = m_statusPollingInterval;
    while (self && !token.isCancelled()) {
        co_await cancellableSleep(interval, token);
        if (!self || token.isCancelled()) {
            co_return;
        }
        co_await self->refreshStatus();
    }
}

QCoro::Task<void> TrackerSupervisor::refreshStatus() {
    QPointer self(this);
    if (!m_launchConfiguration) {
        setTrackerStatus(std::nullopt);
        co_return;
    }
    const bool running = m_processHandle && m_processHandle->isRunning();
    setHelperRunning(running);
    const std::shared_ptr<StatusRead> read =
        co_await readStatus(m_launchConfiguration->executableURL, m_launchConfiguration->configURL);
    if (!self || !read || !publish(*read)) {
        co_return;
    }
    // A helper that died while the command ran has left its exit message; keep it.
    if (running && m_processHandle && m_processHandle->isRunning()) {
        setLastError(std::nullopt);
    }
}

QCoro::Task<void> TrackerSupervisor::refreshStatus(QString executableURL, QString configURL) {
    QPointer self(this);
    const std::shared_ptr<StatusRead> read =
        co_await readStatus(std::move(executableURL), std::move(configURL));
    if (self && read && publish(*read)) {
        setLastError(std::nullopt);
    }
}

bool TrackerSupervisor::publish(const StatusRead& read) {
    if (read.error) {
        setLastError(VantrelError::describe(read.error));
        return false;
    }
    setTrackerStatus(read.status);
    return true;
}

QCoro::Task<std::shared_ptr<TrackerSupervisor::StatusRead>>
TrackerSupervisor::readStatus(QString executableURL, QString configURL) {
    QPointer self(this);
    while (const std::shared_ptr<StatusRead> running = m_statusRead) {
        co_await qCoro(running.get(), &StatusRead::finished);
        if (!self) {
            co_return std::shared_ptr<StatusRead>();
        }
        if (running->reads(executableURL, configURL)) {
            co_return running;
        }
    }
    auto read = std::make_shared<StatusRead>(executableURL, configURL);
    m_statusRead = read;
    try {
        read->status = co_await m_runner.runStatus(executableURL, configURL);
    } catch (...) {
        read->error = std::current_exception();
    }
    if (self && self->m_statusRead == read) {
        self->m_statusRead.reset();
    }
    Q_EMIT read->finished();
    co_return read;
}

void TrackerSupervisor::setTrackerStatus(const std::optional<TrackerStatus>& status) {
    if (m_trackerStatus != status) {
        m_trackerStatus = status;
        Q_EMIT trackerStatusChanged();
    }
}

void TrackerSupervisor::setHelperRunning(bool running) {
    if (m_helperRunning != running) {
        m_helperRunning = running;
        Q_EMIT helperRunningChanged();
    }
}

void TrackerSupervisor::setCrashLocked(bool locked) {
    if (m_crashLocked != locked) {
        m_crashLocked = locked;
        Q_EMIT crashLockedChanged();
    }
}

void TrackerSupervisor::setLastError(const std::optional<QString>& error) {
    if (m_lastError != error) {
        m_lastError = error;
        Q_EMIT lastErrorChanged();
    }
}

#include "TrackerSupervisor.moc"

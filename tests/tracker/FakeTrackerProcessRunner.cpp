#include "FakeTrackerProcessRunner.h"

#include "tracker/TrackerSupervisorError.h"

#include <QCoroSignal>
#include <QCoroTimer>
#include <QTimer>

#include <chrono>
#include <csignal>

namespace {

class FakeHandle : public TrackerProcessHandling {
public:
    explicit FakeHandle(std::shared_ptr<FakeTrackerProcessRunner::Helper> helper)
        : m_helper(std::move(helper)) {}

    bool isRunning() const override { return m_helper->running; }
    void terminate() override {
        m_helper->terminated = true;
        if (m_helper->running) {
            m_helper->running = false;
            QTimer::singleShot(0, [helper = m_helper] { helper->onExit(SIGTERM); });
        }
    }

private:
    std::shared_ptr<FakeTrackerProcessRunner::Helper> m_helper;
};

} // namespace

FakeTrackerProcessRunner::FakeTrackerProcessRunner(std::function<double()> clock)
    : m_clock(std::move(clock)) {}

std::unique_ptr<TrackerProcessHandling>
FakeTrackerProcessRunner::startHelper(const LaunchConfiguration&, ExitHandler onExit) {
    launchTimes.append(m_clock());
    if (launchFailure) {
        launchFailure();
    }
    auto helper = std::make_shared<Helper>();
    helper->onExit = std::move(onExit);
    helpers.append(helper);
    return std::make_unique<FakeHandle>(helper);
}

void FakeTrackerProcessRunner::exitHelper(int index, qint32 exitStatus) {
    const std::shared_ptr<Helper> helper = helpers.at(index);
    helper->running = false;
    QTimer::singleShot(0, [helper, exitStatus] { helper->onExit(exitStatus); });
}

void FakeTrackerProcessRunner::releaseStatus() {
    Q_EMIT statusReleased();
}

QCoro::Task<TrackerStatus> FakeTrackerProcessRunner::runStatus(QString, QString) {
    ++statusCommands;
    ++statusCommandsInFlight;
    if (holdStatus) {
        co_await qCoro(this, &FakeTrackerProcessRunner::statusReleased);
    } else {
        co_await QCoro::sleepFor(std::chrono::milliseconds(0));
    }
    --statusCommandsInFlight;
    if (statusFailure) {
        throw TrackerSupervisorError::helperExited(1, *statusFailure);
    }
    // A copy: QCoro 0.8 moves from a non-const lvalue given to co_return.
    co_return TrackerStatus(status);
}

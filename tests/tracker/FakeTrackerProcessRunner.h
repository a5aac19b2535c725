#pragma once

#include "tracker/TrackerProcessRunning.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

// A scripted runner. Launches succeed or fail as told and are recorded with the time `clock`
// shows then; helpers exit when the test says so (or, after terminate(), with SIGTERM's number),
// always on a later turn of the event loop. Status commands answer on a later turn too, or wait
// for releaseStatus() while `holdStatus` is set.
class FakeTrackerProcessRunner : public QObject, public TrackerProcessRunning {
    Q_OBJECT
public:
    struct Helper {
        bool running = true;
        bool terminated = false;
        ExitHandler onExit;
    };

    explicit FakeTrackerProcessRunner(std::function<double()> clock = [] { return 0.0; });

    std::unique_ptr<TrackerProcessHandling> startHelper(const LaunchConfiguration& configuration,
                                                        ExitHandler onExit) override;
    QCoro::Task<TrackerStatus> runStatus(QString executableURL, QString configURL) override;

    // Ends helper number `index` (in launch order) with `status`, reported on a later turn.
    void exitHelper(int index, qint32 exitStatus);
    void releaseStatus();

    // What startHelper throws, if anything.
    std::function<void()> launchFailure;
    QList<double> launchTimes;
    QList<std::shared_ptr<Helper>> helpers;

    // The next status answer: a report, or this error text (a helperExited message).
    TrackerStatus status;
    std::optional<QString> statusFailure;
    bool holdStatus = false;
    int statusCommands = 0;
    int statusCommandsInFlight = 0;

Q_SIGNALS:
    void statusReleased();

private:
    std::function<double()> m_clock;
};

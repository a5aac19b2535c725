#pragma once

#include "core/LaunchConfiguration.h"
#include "tracker/TrackerProcessHandling.h"
#include "tracker/TrackerStatus.h"

#include <QCoroTask>
#include <QString>

#include <functional>
#include <memory>

// The only code that spawns the tracker helper.
class TrackerProcessRunning {
public:
    // Receives the helper's exit status, or the number of the signal that ended it.
    using ExitHandler = std::function<void(qint32 status)>;

    virtual ~TrackerProcessRunning() = default;

    // Launches the long-running helper with the key on its standard input. `onExit` runs exactly
    // once, on the GUI thread and never from inside this call, after the helper has ended.
    // Throws TrackerSupervisorError::helperMissing or PlatformError; a failure leaves nothing
    // running.
    virtual std::unique_ptr<TrackerProcessHandling>
    startHelper(const LaunchConfiguration& configuration, ExitHandler onExit) = 0;

    // Runs the helper's status command and decodes its report. Completes on the GUI thread once
    // the command has exited and both of its outputs have ended; the GUI thread keeps running
    // meanwhile. Throws TrackerSupervisorError, TrackerStatusDecodingError or PlatformError.
    virtual QCoro::Task<TrackerStatus> runStatus(QString executableURL, QString configURL) = 0;
};

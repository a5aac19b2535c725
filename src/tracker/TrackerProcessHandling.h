#pragma once

// One launched tracker helper, owned by whoever started it. Releasing the handle closes the
// helper's standard input but never kills it; the helper's exit is reported through the callback
// given to TrackerProcessRunning::startHelper, before or after the handle is gone.
class TrackerProcessHandling {
public:
    virtual ~TrackerProcessHandling() = default;

    // Whether the helper is still alive at the moment of asking.
    virtual bool isRunning() const = 0;
    // Closes the helper's standard input and, if it still runs, asks it to end (SIGTERM). Never
    // waits and never fails; the exit is still reported as usual.
    virtual void terminate() = 0;
};

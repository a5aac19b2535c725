#pragma once

#include "core/SleepScheduling.h"

#include <QList>
#include <QObject>

#include <memory>

// A sleeper on virtual time. Every sleep is recorded. By default a sleep ends on the next turn of
// the event loop and advances `elapsed`; with `hold` set it waits for release() instead. A
// cancelled token always ends it early (on a later turn, like the real sleep).
class FakeSleeper : public QObject, public SleepScheduling {
    Q_OBJECT
public:
    QCoro::Task<void> sleep(double seconds, CancellationToken token) override;

    // Ends the oldest held sleep (normally, advancing `elapsed`).
    void releaseOne();
    int pendingCount() const { return static_cast<int>(m_pending.size()); }

    bool hold = false;
    QList<double> requested;
    double elapsed = 0;

private:
    struct Pending;
    QList<std::shared_ptr<Pending>> m_pending;
};

#pragma once

#include <QObject>

// Tells when the machine has woken from sleep: whatever was read before may be stale.
class SessionResumeWatching : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

Q_SIGNALS:
    void resumed();
};

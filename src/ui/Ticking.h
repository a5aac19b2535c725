#pragma once

#include <QObject>

#include <chrono>

// A repeating tick for texts that age (the last sync, a countdown). Views start it only while they
// are shown; tests fire it by hand instead of waiting.
class Ticking : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual void start(std::chrono::milliseconds interval) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

Q_SIGNALS:
    void ticked();
};

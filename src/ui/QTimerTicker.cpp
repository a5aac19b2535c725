#include "ui/QTimerTicker.h"

QTimerTicker::QTimerTicker(QObject* parent)
    : Ticking(parent) {
    connect(&m_timer, &QTimer::timeout, this, &Ticking::ticked);
}

void QTimerTicker::start(std::chrono::milliseconds interval) {
    if (!m_timer.isActive() || m_timer.intervalAsDuration() != interval) {
        m_timer.start(interval);
    }
}

void QTimerTicker::stop() {
    m_timer.stop();
}

bool QTimerTicker::isActive() const {
    return m_timer.isActive();
}

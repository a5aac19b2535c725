#include "support/AsyncTest.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QThread>

#include <cstdlib>

namespace AsyncTest {

std::chrono::milliseconds scaled(std::chrono::milliseconds timeout) {
    const char* value = std::getenv("VANTREL_TEST_TIMEOUT_FACTOR");
    const double factor = value && std::atof(value) > 0 ? std::atof(value) : 1.0;
    return std::chrono::milliseconds(static_cast<qint64>(timeout.count() * factor));
}

bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    QDeadlineTimer deadline(scaled(timeout));
    while (!predicate()) {
        if (deadline.hasExpired()) {
            return predicate();
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(1);
    }
    return true;
}

void spin(std::chrono::milliseconds duration) {
    QDeadlineTimer deadline(duration);
    do {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    } while (!deadline.hasExpired());
}

} // namespace AsyncTest

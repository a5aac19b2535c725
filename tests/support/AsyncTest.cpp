#include "support/AsyncTest.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QThread>

#include <cstdlib>

namespace AsyncTest {

double timeoutFactor() {
    const char* value = std::getenv("VANTREL_TEST_TIMEOUT_FACTOR");
    const double factor = value ? std::atof(value) : 1.0;
    return factor > 0 ? factor : 1.0;
}

std::chrono::milliseconds scaled(std::chrono::milliseconds timeout) {
    return std::chrono::milliseconds(static_cast<qint64>(timeout.count() * timeoutFactor()));
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

void run(QCoro::Task<void>&& task, std::chrono::milliseconds timeout) {
    struct Outcome {
        std::exception_ptr error;
        bool done = false;
    };
    auto outcome = std::make_shared<Outcome>();
    [](QCoro::Task<void> awaited, std::shared_ptr<Outcome> into) -> QCoro::Task<void> {
        try {
            co_await std::move(awaited);
        } catch (...) {
            into->error = std::current_exception();
        }
        into->done = true;
    }(std::move(task), outcome);
    if (!waitUntil([&outcome] { return outcome->done; }, timeout)) {
        throw std::runtime_error("the task did not finish in time");
    }
    if (outcome->error) {
        std::rethrow_exception(outcome->error);
    }
}

} // namespace AsyncTest

#include "core/CancellableSleep.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <coroutine>

namespace {

// One timer-driven wait of at most INT_MAX milliseconds (QTimer's limit).
class TimerWait {
public:
    TimerWait(std::chrono::milliseconds duration, CancellationToken token)
        : m_duration(duration)
        , m_token(std::move(token)) {}

    bool await_ready() const noexcept { return m_token.isCancelled(); }

    void await_suspend(std::coroutine_handle<> waiter) {
        // The timer lives on the heap and is released with deleteLater(), so resuming the waiter
        // (which may destroy this awaiter's frame) never deletes an object inside its own signal.
        auto* timer = new QTimer;
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        auto resumed = std::make_shared<bool>(false);
        auto finish = [timer, resumed, waiter] {
            if (*resumed) {
                return;
            }
            *resumed = true;
            timer->stop();
            timer->deleteLater();
            waiter.resume();
        };
        QObject::connect(timer, &QTimer::timeout, timer, finish);
        m_token.onCancel(timer, finish);
        timer->start(m_duration);
    }

    void await_resume() const noexcept {}

private:
    std::chrono::milliseconds m_duration;
    CancellationToken m_token;
};

} // namespace

QCoro::Task<void> cancellableSleep(std::chrono::nanoseconds duration, CancellationToken token) {
    using namespace std::chrono;
    // Round up so that a sleep never ends before the time asked for.
    auto remaining = ceil<milliseconds>(duration);
    constexpr milliseconds longestTimer{INT_MAX};
    while (remaining > milliseconds::zero() && !token.isCancelled()) {
        const auto chunk = std::min(remaining, longestTimer);
        co_await TimerWait(chunk, token);
        remaining -= chunk;
    }
}

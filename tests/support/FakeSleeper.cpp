#include "support/FakeSleeper.h"

#include <QCoroSignal>
#include <QMetaObject>

struct FakeSleeper::Pending : QObject {
    Q_OBJECT
public:
    bool completed = false;
Q_SIGNALS:
    void finished();
};

QCoro::Task<void> FakeSleeper::sleep(double seconds, CancellationToken token) {
    requested.append(seconds);
    auto pending = std::make_shared<Pending>();
    token.onCancel(pending.get(), [raw = pending.get()] { Q_EMIT raw->finished(); });
    if (hold) {
        m_pending.append(pending);
    } else {
        QMetaObject::invokeMethod(
            pending.get(),
            [raw = pending.get()] {
                raw->completed = true;
                Q_EMIT raw->finished();
            },
            Qt::QueuedConnection);
    }
    co_await qCoro(pending.get(), &Pending::finished);
    m_pending.removeOne(pending);
    if (pending->completed) {
        elapsed += seconds;
    }
}

void FakeSleeper::releaseOne() {
    if (m_pending.isEmpty()) {
        return;
    }
    // The sleeping coroutine holds its own reference, so the entry may leave the list now.
    const std::shared_ptr<Pending> pending = m_pending.takeFirst();
    pending->completed = true;
    QMetaObject::invokeMethod(
        pending.get(), [raw = pending.get()] { Q_EMIT raw->finished(); }, Qt::QueuedConnection);
}

#include "FakeSleeper.moc"

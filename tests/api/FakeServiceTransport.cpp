#include "FakeServiceTransport.h"

#include "app/CancellationError.h"

#include <QCoroSignal>

namespace {

class Relay : public QObject {
    Q_OBJECT
Q_SIGNALS:
    void fired();
};

// The relay is released after its own signal has returned.
struct DeleteLater {
    void operator()(QObject* object) const { object->deleteLater(); }
};

} // namespace

QCoro::Task<TransportResponse> FakeServiceTransport::send(TransportRequest request,
                                                          CancellationToken token) {
    requests.append(request);
    const bool hanging = hang;
    Outcome outcome = outcomes.empty() ? Outcome(http(500, {})) : outcomes.front();
    if (outcomes.size() > 1) {
        outcomes.pop_front();
    }
    std::unique_ptr<Relay, DeleteLater> relay(new Relay);
    if (hanging) {
        token.onCancel(relay.get(), [raw = relay.get()] { Q_EMIT raw->fired(); });
    } else {
        QMetaObject::invokeMethod(
            relay.get(), [raw = relay.get()] { Q_EMIT raw->fired(); }, Qt::QueuedConnection);
    }
    co_await qCoro(relay.get(), &Relay::fired);
    if (hanging) {
        throw CancellationError();
    }
    if (auto* failure = std::get_if<std::exception_ptr>(&outcome)) {
        std::rethrow_exception(*failure);
    }
    co_return std::get<TransportResponse>(outcome);
}

#include "FakeServiceTransport.moc"

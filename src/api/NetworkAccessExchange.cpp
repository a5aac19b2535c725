#include "api/NetworkAccessExchange.h"

#include "core/CancellationError.h"
#include "core/PlatformError.h"

#include <QCoroNetworkReply>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <memory>

namespace {

// Deleting a reply from inside one of its own signals is not allowed, and the awaiting coroutine
// may resume from its `finished` signal.
struct DeleteLater {
    void operator()(QObject* object) const { object->deleteLater(); }
};

// Lives as the reply's child, so its connections, timer and the cancellation hook end with it.
// Bounds what one reply may cost: bytes read and time taken.
class BoundedReading : public QObject {
public:
    BoundedReading(QNetworkReply* reply, qsizetype limit, std::chrono::milliseconds deadline)
        : QObject(reply)
        , m_reply(reply)
        , m_limit(limit) {
        connect(reply, &QNetworkReply::readyRead, this, &BoundedReading::drain);
        // The transfer timeout only notices silence; a server that sends a byte now and then
        // would hold the exchange open forever.
        m_deadline.setSingleShot(true);
        connect(&m_deadline, &QTimer::timeout, this, [this] {
            m_pastDeadline = true;
            m_reply->abort();
        });
        m_deadline.start(deadline);
    }

    void drain() {
        while (!m_exceeded && m_reply->bytesAvailable() > 0) {
            m_body += m_reply->read(m_limit + 1 - m_body.size());
            if (m_body.size() > m_limit) {
                m_exceeded = true;
                m_reply->abort();
            }
        }
    }

    const QByteArray& body() const { return m_body; }
    bool exceeded() const { return m_exceeded; }
    bool pastDeadline() const { return m_pastDeadline; }

private:
    QNetworkReply* m_reply;
    qsizetype m_limit;
    QTimer m_deadline;
    QByteArray m_body;
    bool m_exceeded = false;
    bool m_pastDeadline = false;
};

// Errors that Qt reports for the exchange itself; the content and server error codes only
// restate an HTTP status, and the response that carried it is what the caller wants.
bool isExchangeFailure(QNetworkReply::NetworkError error) {
    return (error >= QNetworkReply::ConnectionRefusedError &&
            error <= QNetworkReply::UnknownNetworkError) ||
           (error >= QNetworkReply::ProxyConnectionRefusedError &&
            error <= QNetworkReply::UnknownProxyError) ||
           error == QNetworkReply::ProtocolUnknownError || error == QNetworkReply::ProtocolFailure;
}

} // namespace

QCoro::Task<TransportResponse> NetworkAccessExchange::perform(QNetworkAccessManager* manager,
                                                              TransportRequest request,
                                                              CancellationToken token,
                                                              qsizetype bodyLimit,
                                                              std::chrono::milliseconds deadline) {
    token.throwIfCancelled();
    const bool plainGet = request.method == "GET" && request.body.isEmpty();
    std::unique_ptr<QNetworkReply, DeleteLater> reply(
        plainGet ? manager->get(request.request)
                 : manager->sendCustomRequest(request.request, request.method, request.body));
    // Without a bound Qt keeps reading from the socket into its own buffer however slowly the
    // body is consumed.
    reply->setReadBufferSize(bodyLimit + 1);
    auto* collector = new BoundedReading(reply.get(), bodyLimit, deadline);
    token.onCancel(collector, [raw = reply.get()] { raw->abort(); });

    co_await reply.get();

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!collector->exceeded()) {
        if (token.isCancelled()) {
            throw CancellationError();
        }
        if (collector->pastDeadline()) {
            throw PlatformError(QStringLiteral("No complete answer within %1 s")
                                    .arg(static_cast<double>(deadline.count()) / 1000));
        }
        if (reply->error() != QNetworkReply::NoError &&
            (!status.isValid() || isExchangeFailure(reply->error()))) {
            throw PlatformError(reply->errorString());
        }
        collector->drain();
    }
    co_return TransportResponse{collector->body(), status.isValid(), status.toInt()};
}

#include "api/TodaySummaryClient.h"

#include "api/ServiceRequest.h"
#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryTransporting.h"
#include "core/SnakeCaseKeys.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QJsonValue required(const QJsonObject& object, const char* field) {
    const QJsonValue value = object.value(QLatin1String(field));
    if (value.isUndefined() || value.isNull()) {
        throw TodaySummaryClientError::invalidResponse();
    }
    return value;
}

QJsonObject requiredObject(const QJsonObject& object, const char* field) {
    const QJsonValue value = required(object, field);
    if (!value.isObject()) {
        throw TodaySummaryClientError::invalidResponse();
    }
    return SnakeCaseKeys::withFieldNames(value.toObject());
}

qint64 requiredInteger(const QJsonObject& object, const char* field) {
    const std::optional<qint64> number = SnakeCaseKeys::wholeNumber(required(object, field));
    if (!number) {
        throw TodaySummaryClientError::invalidResponse();
    }
    return *number;
}

} // namespace

TodaySummary TodaySummaryClient::decode(const QByteArray& body) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        throw TodaySummaryClientError::invalidResponse();
    }
    const QJsonObject data =
        requiredObject(SnakeCaseKeys::withFieldNames(document.object()), "data");
    const QJsonObject total = requiredObject(data, "grandTotal");
    const QJsonValue text = required(total, "text");
    if (!text.isString()) {
        throw TodaySummaryClientError::invalidResponse();
    }
    TodaySummary summary{text.toString(), requiredInteger(total, "totalSeconds")};
    if (summary.text.trimmed().isEmpty() || summary.totalSeconds < 0) {
        throw TodaySummaryClientError::invalidResponse();
    }
    return summary;
}

QCoro::Task<TodaySummary> TodaySummaryClient::fetchTodaySummary(QString serverURL, QString apiKey,
                                                                CancellationToken token) {
    auto* transport = m_transport;
    const std::optional<QUrl> url =
        ServiceRequest::endpoint(serverURL, QStringLiteral("users/current/statusbar/today"));
    if (!url) {
        throw TodaySummaryClientError::invalidServerURL();
    }
    TransportRequest request{"GET", ServiceRequest::make(*url), {}};
    request.request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());

    TransportResponse response;
    try {
        response = co_await transport->send(std::move(request), token);
    } catch (...) {
        throw TodaySummaryClientError::networkUnavailable();
    }
    if (token.isCancelled()) {
        throw TodaySummaryClientError::networkUnavailable();
    }
    if (response.body.size() > ServiceRequest::maximumBodyBytes || !response.isHTTPResponse) {
        throw TodaySummaryClientError::invalidResponse();
    }
    if (response.statusCode != 200) {
        throw TodaySummaryClientError::requestRejected(response.statusCode);
    }
    co_return decode(response.body);
}

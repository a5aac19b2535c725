#include "api/DeviceAuthorizationClient.h"

#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizationTransporting.h"
#include "api/ServiceRequest.h"

#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>

#include <cmath>

namespace {

// Response keys are matched literally; an absent key and a null one are the same, and a value of
// the wrong type spoils the whole body.
class ResponseObject {
public:
    explicit ResponseObject(const QByteArray& body) {
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
        if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        m_object = document.object();
    }

    std::optional<QString> optionalString(const char* key) const {
        const std::optional<QJsonValue> value = present(key);
        if (!value) {
            return std::nullopt;
        }
        if (!value->isString()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return value->toString();
    }

    QString string(const char* key) const { return required(optionalString(key)); }

    std::optional<double> optionalNumber(const char* key) const {
        const std::optional<QJsonValue> value = present(key);
        if (!value) {
            return std::nullopt;
        }
        if (!value->isDouble()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return value->toDouble();
    }

    // A number of seconds, integer or fraction, that a caller could really wait for.
    std::optional<double> optionalSeconds(const char* key, double maximum) const {
        const std::optional<double> seconds = optionalNumber(key);
        if (seconds && (!std::isfinite(*seconds) || *seconds < 0 || *seconds > maximum)) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return seconds;
    }

    double seconds(const char* key, double maximum) const {
        return required(optionalSeconds(key, maximum));
    }

    QUuid uuid(const char* key) const {
        static const QRegularExpression form(QStringLiteral(
            "^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$"));
        const QString text = string(key);
        if (!form.match(text).hasMatch()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return QUuid::fromString(text);
    }

    QUrl url(const char* key) const {
        const QString text = string(key);
        const QUrl parsed(text, QUrl::StrictMode);
        if (text.isEmpty() || !parsed.isValid()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return parsed;
    }

private:
    std::optional<QJsonValue> present(const char* key) const {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (value.isUndefined() || value.isNull()) {
            return std::nullopt;
        }
        return value;
    }

    template <typename T>
    static T required(std::optional<T> value) {
        if (!value) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return *value;
    }

    QJsonObject m_object;
};

} // namespace

DeviceAuthorizationClient::DeviceAuthorizationClient(DeviceAuthorizationTransporting* transport,
                                                     std::function<QDateTime()> now)
    : m_transport(transport)
    , m_now(std::move(now)) {}

TransportRequest DeviceAuthorizationClient::buildRequest(const QString& serverURL,
                                                         const QString& path,
                                                         const std::optional<QJsonObject>& body) {
    const std::optional<QUrl> url = ServiceRequest::endpoint(serverURL, path);
    if (!url) {
        throw DeviceAuthorizationClientError::invalidServerURL();
    }
    TransportRequest request{"POST", ServiceRequest::make(*url), {}};
    request.request.setRawHeader("Content-Type", "application/json");
    if (body) {
        request.body = QJsonDocument(*body).toJson(QJsonDocument::Compact);
    }
    return request;
}

QCoro::Task<TransportResponse>
DeviceAuthorizationClient::exchange(DeviceAuthorizationTransporting* transport,
                                    TransportRequest request, CancellationToken token) {
    TransportResponse response;
    try {
        response = co_await transport->send(std::move(request), token);
    } catch (...) {
        // Whatever the platform said (DNS, TLS, timeout, cancellation) means the same to the user.
        throw DeviceAuthorizationClientError::networkUnavailable();
    }
    if (token.isCancelled()) {
        throw DeviceAuthorizationClientError::networkUnavailable();
    }
    if (response.body.size() > ServiceRequest::maximumBodyBytes || !response.isHTTPResponse) {
        throw DeviceAuthorizationClientError::invalidResponse();
    }
    co_return response;
}

QCoro::Task<DeviceAuthorizationSession>
DeviceAuthorizationClient::start(QString serverURL, QUuid deviceID, QString deviceName,
                                 QString clientVersion, CancellationToken token) {
    // Copied before the first suspension: nothing of `this` is touched once the exchange is out.
    auto* transport = m_transport;
    const std::function<QDateTime()> now = m_now;
    TransportRequest request = buildRequest(
        serverURL, QStringLiteral("device-authorizations"),
        QJsonObject{
            {QStringLiteral("device_id"), deviceID.toString(QUuid::WithoutBraces).toUpper()},
            {QStringLiteral("device_name"), deviceName},
            {QStringLiteral("platform"), QLatin1String(platform)},
            {QStringLiteral("client_version"), clientVersion},
        });

    const TransportResponse response = co_await exchange(transport, std::move(request), token);
    if (response.statusCode != 201) {
        throw DeviceAuthorizationClientError::requestRejected(response.statusCode);
    }
    const ResponseObject body(response.body);
    DeviceAuthorizationSession session;
    session.authorizationID = body.uuid("authorization_id");
    session.deviceCode = body.string("device_code");
    session.userCode = body.string("user_code");
    session.verificationURL = body.url("verification_uri");
    session.verificationURLComplete = body.url("verification_uri_complete");
    const double expiresIn = body.seconds("expires_in", maximumExpiresIn);
    session.interval = body.seconds("interval", maximumInterval);
    session.expiresAt = now().addMSecs(std::llround(expiresIn * 1000));
    co_return session;
}

QCoro::Task<DeviceAuthorizationPollResult>
DeviceAuthorizationClient::poll(QString serverURL, DeviceAuthorizationSession session,
                                CancellationToken token) {
    auto* transport = m_transport;
    TransportRequest request =
        buildRequest(serverURL, QStringLiteral("device-authorizations/poll"),
                     QJsonObject{
                         {QStringLiteral("authorization_id"),
                          session.authorizationID.toString(QUuid::WithoutBraces).toUpper()},
                         {QStringLiteral("device_code"), session.deviceCode},
                     });

    const TransportResponse response = co_await exchange(transport, std::move(request), token);
    // The body decides validity before the status does: an HTML error page is an invalid
    // response whatever its status.
    const ResponseObject body(response.body);
    const QString status = body.string("status");
    const std::optional<QString> apiKey = body.optionalString("api_key");
    const double interval =
        body.optionalSeconds("interval", maximumInterval).value_or(session.interval);
    // Not used, but a value of the wrong type still makes the answer invalid.
    body.optionalNumber("expires_in");

    const auto is = [&](int code, const char* expected) {
        return response.statusCode == code && status == QLatin1String(expected);
    };
    if (is(200, "authorized")) {
        if (!apiKey || apiKey->isEmpty()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        co_return DeviceAuthorizationPollResult::authorized(*apiKey);
    }
    if (is(202, "pending")) {
        co_return DeviceAuthorizationPollResult::pending(interval);
    }
    if (is(429, "slow_down")) {
        co_return DeviceAuthorizationPollResult::slowDown(interval);
    }
    if (is(403, "denied")) {
        co_return DeviceAuthorizationPollResult::denied();
    }
    if (is(410, "expired")) {
        co_return DeviceAuthorizationPollResult::expired();
    }
    if (is(409, "claimed")) {
        co_return DeviceAuthorizationPollResult::claimed();
    }
    throw DeviceAuthorizationClientError::requestRejected(response.statusCode);
}

QCoro::Task<void> DeviceAuthorizationClient::revoke(QString serverURL, QString apiKey,
                                                    CancellationToken token) {
    auto* transport = m_transport;
    TransportRequest request =
        buildRequest(serverURL, QStringLiteral("device/revoke"), std::nullopt);
    request.request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());

    const TransportResponse response = co_await exchange(transport, std::move(request), token);
    if (response.statusCode != 204) {
        throw DeviceAuthorizationClientError::requestRejected(response.statusCode);
    }
}

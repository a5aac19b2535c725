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

DeviceAuthorizationSession DeviceAuthorizationClient::decodeSession(const QByteArray& body,
                                                                    const QDateTime& now) {
    const ResponseObject object(body);
    DeviceAuthorizationSession session;
    session.authorizationID = object.uuid("authorization_id");
    session.deviceCode = object.string("device_code");
    session.userCode = object.string("user_code");
    session.verificationURL = object.url("verification_uri");
    session.verificationURLComplete = object.url("verification_uri_complete");
    const double expiresIn = object.seconds("expires_in", maximumExpiresIn);
    session.interval = object.seconds("interval", maximumInterval);
    session.expiresAt = now.addMSecs(std::llround(expiresIn * 1000));
    return session;
}

DeviceAuthorizationPollResult DeviceAuthorizationClient::decodePollResult(int statusCode,
                                                                          const QByteArray& body,
                                                                          double interval) {
    // The body decides validity before the status does: an HTML error page is an invalid
    // response whatever its status.
    const ResponseObject object(body);
    const QString status = object.string("status");
    const std::optional<QString> apiKey = object.optionalString("api_key");
    const double nextInterval =
        object.optionalSeconds("interval", maximumInterval).value_or(interval);
    // Not used, but a value of the wrong type still makes the answer invalid.
    object.optionalNumber("expires_in");

    const auto is = [&](int code, const char* expected) {
        return statusCode == code && status == QLatin1String(expected);
    };
    if (is(200, "authorized")) {
        if (!apiKey || apiKey->isEmpty()) {
            throw DeviceAuthorizationClientError::invalidResponse();
        }
        return DeviceAuthorizationPollResult::authorized(*apiKey);
    }
    if (is(202, "pending")) {
        return DeviceAuthorizationPollResult::pending(nextInterval);
    }
    if (is(429, "slow_down")) {
        return DeviceAuthorizationPollResult::slowDown(nextInterval);
    }
    if (is(403, "denied")) {
        return DeviceAuthorizationPollResult::denied();
    }
    if (is(410, "expired")) {
        return DeviceAuthorizationPollResult::expired();
    }
    if (is(409, "claimed")) {
        return DeviceAuthorizationPollResult::claimed();
    }
    throw DeviceAuthorizationClientError::requestRejected(statusCode);
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
    co_return decodeSession(response.body, now());
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
    co_return decodePollResult(response.statusCode, response.body, session.interval);
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

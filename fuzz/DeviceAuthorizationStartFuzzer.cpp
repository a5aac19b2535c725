#include "FuzzProperty.h"
#include "api/DeviceAuthorizationClient.h"
#include "api/DeviceAuthorizationClientError.h"
#include "api/DeviceAuthorizationSession.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

const QDateTime now = QDateTime::fromSecsSinceEpoch(1714557600, Qt::UTC);

QByteArray encoded(const DeviceAuthorizationSession& session) {
    const QJsonObject object{
        {QStringLiteral("authorization_id"),
         session.authorizationID.toString(QUuid::WithoutBraces)},
        {QStringLiteral("device_code"), session.deviceCode},
        {QStringLiteral("user_code"), session.userCode},
        {QStringLiteral("verification_uri"), session.verificationURL.toString(QUrl::FullyEncoded)},
        {QStringLiteral("verification_uri_complete"),
         session.verificationURLComplete.toString(QUrl::FullyEncoded)},
        {QStringLiteral("expires_in"), static_cast<double>(now.msecsTo(session.expiresAt)) / 1000},
        {QStringLiteral("interval"), session.interval},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// QUrl keeps the spelling it was given ("#a#b" and "#a%23b" compare unequal), so addresses are
// compared by what they encode to, which is what reaches the browser.
bool sameSession(const DeviceAuthorizationSession& a, const DeviceAuthorizationSession& b) {
    return a.authorizationID == b.authorizationID && a.deviceCode == b.deviceCode &&
           a.userCode == b.userCode &&
           a.verificationURL.toEncoded() == b.verificationURL.toEncoded() &&
           a.verificationURLComplete.toEncoded() == b.verificationURLComplete.toEncoded() &&
           a.expiresAt == b.expiresAt && a.interval == b.interval;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    DeviceAuthorizationSession session;
    try {
        session = DeviceAuthorizationClient::decodeSession(body, now);
    } catch (const DeviceAuthorizationClientError& error) {
        require(error == DeviceAuthorizationClientError::invalidResponse(),
                "a body that does not decode is an invalid response");
        return 0;
    }
    require(std::isfinite(session.interval) && session.interval >= 0 &&
                session.interval <= DeviceAuthorizationClient::maximumInterval,
            "the interval is a wait the sign-in can sit through");
    const qint64 expiresInMs = now.msecsTo(session.expiresAt);
    require(session.expiresAt.isValid() && expiresInMs >= 0 &&
                expiresInMs <= DeviceAuthorizationClient::maximumExpiresIn * 1000,
            "the session expires within a year from now");
    require(session.verificationURL.isValid() && !session.verificationURL.isEmpty() &&
                session.verificationURLComplete.isValid() &&
                !session.verificationURLComplete.isEmpty(),
            "both verification addresses are usable");

    DeviceAuthorizationSession again;
    try {
        again = DeviceAuthorizationClient::decodeSession(encoded(session), now);
    } catch (const DeviceAuthorizationClientError&) {
        require(false, "a decoded session re-encodes to a body that decodes");
    }
    require(sameSession(again, session),
            "a decoded session equals itself decoded from its re-encoding");
    return 0;
}

#pragma once

#include "api/DeviceAuthorizing.h"
#include "api/TransportRequest.h"
#include "api/TransportResponse.h"

#include <QDateTime>
#include <QJsonObject>

#include <functional>
#include <optional>

class DeviceAuthorizationTransporting;

// The client side of the device authorization protocol. It keeps no sign-in state; the transport
// and the clock are the only things it holds, and the transport must outlive every call.
class DeviceAuthorizationClient : public DeviceAuthorizing {
public:
    DeviceAuthorizationClient(DeviceAuthorizationTransporting* transport,
                              std::function<QDateTime()> now);

    QCoro::Task<DeviceAuthorizationSession> start(QString serverURL, QUuid deviceID,
                                                  QString deviceName, QString clientVersion,
                                                  CancellationToken token) override;
    QCoro::Task<DeviceAuthorizationPollResult>
    poll(QString serverURL, DeviceAuthorizationSession session, CancellationToken token) override;
    QCoro::Task<void> revoke(QString serverURL, QString apiKey, CancellationToken token) override;

    // What the service learns about the operating system in a start request.
    static constexpr const char* platform = "linux";
    // Bounds beyond which a number of seconds is an implausible answer rather than a wait the
    // sign-in flow should sit through.
    static constexpr double maximumInterval = 24 * 60 * 60;
    static constexpr double maximumExpiresIn = 365 * 24 * 60 * 60;

    // The session in the body of a start request's 201 answer, expiring `expires_in` seconds
    // after `now`. Throws DeviceAuthorizationClientError.
    static DeviceAuthorizationSession decodeSession(const QByteArray& body, const QDateTime& now);
    // What a poll's answer means; `interval` is the session's, kept when the body names none.
    // Throws DeviceAuthorizationClientError.
    static DeviceAuthorizationPollResult decodePollResult(int statusCode, const QByteArray& body,
                                                          double interval);

private:
    static TransportRequest buildRequest(const QString& serverURL, const QString& path,
                                         const std::optional<QJsonObject>& body);
    static QCoro::Task<TransportResponse> exchange(DeviceAuthorizationTransporting* transport,
                                                   TransportRequest request,
                                                   CancellationToken token);

    DeviceAuthorizationTransporting* m_transport;
    std::function<QDateTime()> m_now;
};

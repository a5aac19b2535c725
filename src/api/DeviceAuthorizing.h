#pragma once

#include "api/DeviceAuthorizationPollResult.h"
#include "api/DeviceAuthorizationSession.h"
#include "core/CancellationToken.h"

#include <QCoroTask>
#include <QUrl>
#include <QUuid>

// The service's device authorization protocol. Every operation throws
// DeviceAuthorizationClientError; cancelling `token` aborts the exchange, which surfaces as
// networkUnavailable. The base URL stays text so that its scheme can be checked literally (QUrl
// lower-cases schemes). Arguments are taken by value because the operations are coroutines.
class DeviceAuthorizing {
public:
    virtual ~DeviceAuthorizing() = default;

    virtual QCoro::Task<DeviceAuthorizationSession> start(QString serverURL, QUuid deviceID,
                                                          QString deviceName, QString clientVersion,
                                                          CancellationToken token) = 0;
    virtual QCoro::Task<DeviceAuthorizationPollResult>
    poll(QString serverURL, DeviceAuthorizationSession session, CancellationToken token) = 0;
    virtual QCoro::Task<void> revoke(QString serverURL, QString apiKey,
                                     CancellationToken token) = 0;
};

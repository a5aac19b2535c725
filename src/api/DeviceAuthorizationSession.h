#pragma once

#include <QDateTime>
#include <QString>
#include <QUrl>
#include <QUuid>

// One device authorization as the service handed it out; kept by the sign-in flow while it polls.
struct DeviceAuthorizationSession {
    QUuid authorizationID;
    QString deviceCode;
    QString userCode;
    QUrl verificationURL;
    QUrl verificationURLComplete;
    QDateTime expiresAt;
    // Seconds between polls, as the service asked.
    double interval = 0;

    friend bool operator==(const DeviceAuthorizationSession&,
                           const DeviceAuthorizationSession&) = default;
};

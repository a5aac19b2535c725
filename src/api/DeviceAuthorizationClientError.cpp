#include "api/DeviceAuthorizationClientError.h"

QString DeviceAuthorizationClientError::description() const {
    switch (m_code) {
    case Code::requestRejected:
        return QStringLiteral("Vantrel rejected the device authorization request (HTTP %1).")
            .arg(m_statusCode);
    case Code::invalidServerURL:
        return QStringLiteral("The Vantrel server address is invalid.");
    case Code::invalidResponse:
        return QStringLiteral("Vantrel returned an invalid device authorization response.");
    case Code::networkUnavailable:
        return QStringLiteral("Vantrel could not be reached. Check your connection and try again.");
    }
    Q_UNREACHABLE();
}

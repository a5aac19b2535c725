#include "app/AppStateError.h"

QString AppStateError::description() const {
    switch (m_code) {
    case Code::invalidServerURL:
        return QStringLiteral("Enter a valid HTTPS Vantrel API URL.");
    case Code::credentialVerificationFailed:
        return QStringLiteral("The API key could not be verified after saving.");
    case Code::deviceIdentityUnavailable:
        return QStringLiteral("Vantrel could not create a stable identity for this Mac.");
    case Code::deviceAuthorizationDenied:
        return QStringLiteral("Device access was denied. Start sign in again when you are ready.");
    case Code::deviceAuthorizationExpired:
        return QStringLiteral("Device sign in expired. Start sign in again to get a new code.");
    case Code::deviceAuthorizationClaimed:
        return QStringLiteral("This sign-in request was already used. Start sign in again.");
    }
    Q_UNREACHABLE();
}

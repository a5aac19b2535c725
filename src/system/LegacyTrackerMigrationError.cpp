#include "system/LegacyTrackerMigrationError.h"

QString LegacyTrackerMigrationError::description() const {
    switch (m_code) {
    case Code::serviceStillRunning:
        return QStringLiteral("The legacy tracker service ") + m_label +
               QStringLiteral(" is still running.");
    case Code::credentialVerificationFailed:
        return QStringLiteral("The API key could not be verified in Keychain. The existing "
                              "service was left unchanged.");
    }
    Q_UNREACHABLE();
}

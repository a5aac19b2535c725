#pragma once

#include "core/VantrelError.h"

// Failures of the application's own sign-in and settings actions.
class AppStateError : public VantrelError {
public:
    enum class Code {
        invalidServerURL,
        credentialVerificationFailed,
        deviceIdentityUnavailable,
        deviceAuthorizationDenied,
        deviceAuthorizationExpired,
        deviceAuthorizationClaimed,
    };

    explicit AppStateError(Code code)
        : m_code(code) {}

    Code code() const { return m_code; }
    QString description() const override;

    friend bool operator==(const AppStateError& a, const AppStateError& b) {
        return a.m_code == b.m_code;
    }

private:
    Code m_code;
};

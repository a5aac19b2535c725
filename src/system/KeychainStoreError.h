#pragma once

#include "core/VantrelError.h"

// Failures of the secret store. The texts keep the product's historic wording: users and support
// know them by it, whatever secret store serves the desktop.
class KeychainStoreError : public VantrelError {
public:
    enum class Code { unexpectedStatus, invalidCredential, invalidStoredData };

    static KeychainStoreError unexpectedStatus(qint32 status) {
        return KeychainStoreError(Code::unexpectedStatus, status);
    }
    static KeychainStoreError invalidCredential() {
        return KeychainStoreError(Code::invalidCredential);
    }
    static KeychainStoreError invalidStoredData() {
        return KeychainStoreError(Code::invalidStoredData);
    }

    Code code() const { return m_code; }
    qint32 status() const { return m_status; }
    QString description() const override {
        switch (m_code) {
        case Code::unexpectedStatus:
            return QStringLiteral("Keychain operation failed with status %1.").arg(m_status);
        case Code::invalidCredential:
            return QStringLiteral("The API key is empty.");
        case Code::invalidStoredData:
            return QStringLiteral("The stored API key is not valid UTF-8.");
        }
        Q_UNREACHABLE();
    }

    friend bool operator==(const KeychainStoreError& a, const KeychainStoreError& b) {
        return a.m_code == b.m_code && a.m_status == b.m_status;
    }

private:
    explicit KeychainStoreError(Code code, qint32 status = 0)
        : m_code(code)
        , m_status(status) {}

    Code m_code;
    qint32 m_status;
};

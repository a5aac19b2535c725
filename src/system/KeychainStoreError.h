#pragma once

#include "core/VantrelError.h"

// Failures of the secret store. The texts keep the product's historic wording: users and support
// know them by it, whatever secret store serves the desktop. A locked store and a store that
// cannot be reached at all have words of their own: a bare status number tells the user nothing
// they could act on.
class KeychainStoreError : public VantrelError {
public:
    enum class Code { unexpectedStatus, invalidCredential, invalidStoredData, locked, unreachable };

    static KeychainStoreError unexpectedStatus(qint32 status) {
        return KeychainStoreError(Code::unexpectedStatus, status);
    }
    static KeychainStoreError invalidCredential() {
        return KeychainStoreError(Code::invalidCredential);
    }
    static KeychainStoreError invalidStoredData() {
        return KeychainStoreError(Code::invalidStoredData);
    }
    // The item exists but stays locked: the user dismissed the unlock prompt, or none could be
    // shown.
    static KeychainStoreError locked() { return KeychainStoreError(Code::locked); }
    // No secret service answers: no session bus, or nothing on it owns the secrets name.
    static KeychainStoreError unreachable() { return KeychainStoreError(Code::unreachable); }

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
        case Code::locked:
            return QStringLiteral("The keyring that holds the API key is locked. Unlock it and "
                                  "try again.");
        case Code::unreachable:
            return QStringLiteral("No secret service could be reached to keep the API key. "
                                  "Start the desktop's keyring and try again.");
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

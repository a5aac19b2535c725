#pragma once

#include "system/CredentialStoring.h"

// The API key as one item of the desktop Secret Service (gnome-keyring, KWallet, KeePassXC),
// found by its "service" and "account" attributes in whichever collection holds it; a new item
// goes to the default collection. Every operation is a blocking libsecret call. Unlocking a locked
// collection goes through the desktop's own prompt; an item that stays locked is an error, never
// "no key", so a locked keyring cannot pass for a signed-out user.
class SecretServiceCredentialStore : public CredentialStoring {
public:
    // The status reported when a matching item stays locked after the unlock attempt (the user
    // dismissed the prompt, or no prompt could be shown): libsecret's own code for a locked
    // object, the one its calls report when they touch such an item.
    static constexpr qint32 lockedStatus = 2;

    SecretServiceCredentialStore(QString service, QString account);

    std::optional<QString> loadAPIKey() override;
    void saveAPIKey(const QString& key) override;
    void deleteAPIKey() override;

private:
    QByteArray m_service;
    QByteArray m_account;
};

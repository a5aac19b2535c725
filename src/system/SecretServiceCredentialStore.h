#pragma once

#include "system/CredentialStoring.h"

typedef struct _SecretValue SecretValue;

// The API key as one item of the desktop Secret Service (gnome-keyring, KWallet, KeePassXC),
// found by its "service" and "account" attributes in whichever collection holds it; a new item
// goes to the default collection. Every operation is a blocking libsecret call. Unlocking a locked
// collection goes through the desktop's own prompt; an item that stays locked is an error, never
// "no key", so a locked keyring cannot pass for a signed-out user.
//
// The service may go away under a running application (the keyring daemon restarts with the
// session, or crashes); an operation that finds the connection broken connects afresh and tries
// once more, so the store works again as soon as a service is back.
class SecretServiceCredentialStore : public CredentialStoring {
public:
    SecretServiceCredentialStore(QString service, QString account);

    std::optional<QString> loadAPIKey() override;
    void saveAPIKey(const QString& key) override;
    void deleteAPIKey() override;

private:
    // One attempt each, on whatever connection libsecret holds.
    std::optional<QString> load() const;
    void save(SecretValue* value) const;
    void remove() const;

    QByteArray m_service;
    QByteArray m_account;
};

#pragma once

#include "system/CredentialStoring.h"

#include <chrono>
#include <functional>

typedef struct _SecretService SecretService;
typedef struct _SecretValue SecretValue;

// The API key as one item of the desktop Secret Service (gnome-keyring, KWallet, KeePassXC),
// found by its "service" and "account" attributes in whichever collection holds it; a new item
// goes to the default collection. Unlocking a locked collection goes through the desktop's own
// prompt; an item that stays locked is an error, never "no key", so a locked keyring cannot pass
// for a signed-out user.
//
// Every operation runs on libsecret's asynchronous calls, whose callbacks arrive through the GLib
// main context that Qt's event dispatcher iterates on the GUI thread, so nothing here ever blocks
// it. A service that does not answer within `bound` (a daemon stopped or hung) reads as
// unreachable; only the time the keyring's unlock prompt is open does not count, since the user
// is typing a password then.
//
// The service may also go away under a running application (the keyring daemon restarts with
// the session, or crashes); an operation that finds the connection broken connects afresh and
// tries once more, so the store works again as soon as a service is back.
class SecretServiceCredentialStore : public CredentialStoring {
public:
    static constexpr std::chrono::milliseconds defaultBound{5000};

    SecretServiceCredentialStore(QString service, QString account,
                                 std::chrono::milliseconds bound = defaultBound);
    ~SecretServiceCredentialStore() override;
    SecretServiceCredentialStore(const SecretServiceCredentialStore&) = delete;
    SecretServiceCredentialStore& operator=(const SecretServiceCredentialStore&) = delete;

    QCoro::Task<std::optional<QString>> loadAPIKey(CancellationToken token) override;
    QCoro::Task<void> saveAPIKey(QString key, CancellationToken token) override;
    QCoro::Task<void> deleteAPIKey(CancellationToken token) override;

private:
    // One attempt each, on the connection held or a new one.
    QCoro::Task<std::optional<QString>> load(CancellationToken token);
    QCoro::Task<void> save(SecretValue* value, CancellationToken token);
    QCoro::Task<void> remove(CancellationToken token);

    void disconnect();

    QByteArray m_service;
    QByteArray m_account;
    std::chrono::milliseconds m_bound;
    // Opened (with its encrypted session) by the first operation that needs it.
    SecretService* m_connection = nullptr;
    const std::function<void()> m_disconnect = [this] { disconnect(); };
};

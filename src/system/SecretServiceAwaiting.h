#pragma once

#include <QCoroTask>

// Waits until a secret service can be asked for the API key. At login the desktop's keyring may
// come up after us; reading the key before it does would look like a missing keyring.
class SecretServiceAwaiting {
public:
    virtual ~SecretServiceAwaiting() = default;

    // Returns at once when a secret service is there or can be started on demand; otherwise once
    // one appears or the wait's limit passes, whichever comes first. Never throws: whoever reads
    // the key next reports a service that is still missing.
    virtual QCoro::Task<void> awaitSecretService() = 0;
};

#pragma once

#include "core/CancellationToken.h"

#include <QCoroTask>
#include <QString>

#include <optional>

// The one place the API key is kept. Every operation is asynchronous: it answers on a later turn
// of the event loop and throws a KeychainStoreError (or a PlatformError) on failure, or a
// CancellationError once `token` is cancelled. A missing item is not a failure.
class CredentialStoring {
public:
    virtual ~CredentialStoring() = default;

    // The stored key exactly as stored, or nothing when no item exists.
    virtual QCoro::Task<std::optional<QString>> loadAPIKey(CancellationToken token) = 0;
    // Trims `key`; afterwards loadAPIKey() returns the trimmed key.
    virtual QCoro::Task<void> saveAPIKey(QString key, CancellationToken token) = 0;
    // Afterwards loadAPIKey() returns nothing; deleting a missing item succeeds.
    virtual QCoro::Task<void> deleteAPIKey(CancellationToken token) = 0;
};

#pragma once

#include <QString>

#include <optional>

// The one place the API key is kept. All operations are synchronous and throw a
// KeychainStoreError (or a PlatformError) on failure. A missing item is not a failure.
class CredentialStoring {
public:
    virtual ~CredentialStoring() = default;

    // The stored key exactly as stored, or nothing when no item exists.
    virtual std::optional<QString> loadAPIKey() = 0;
    // Trims `key`; afterwards loadAPIKey() returns the trimmed key.
    virtual void saveAPIKey(const QString& key) = 0;
    // Afterwards loadAPIKey() returns nothing; deleting a missing item succeeds.
    virtual void deleteAPIKey() = 0;
};

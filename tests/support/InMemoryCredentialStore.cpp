#include "support/InMemoryCredentialStore.h"

#include "system/KeychainStoreError.h"

std::optional<QString> InMemoryCredentialStore::loadAPIKey() {
    if (failLoad) {
        throw KeychainStoreError::unexpectedStatus(*failLoad);
    }
    return loadOverride ? loadOverride : stored;
}

void InMemoryCredentialStore::saveAPIKey(const QString& key) {
    ++saveCount;
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty()) {
        throw KeychainStoreError::invalidCredential();
    }
    if (failSave) {
        throw KeychainStoreError::unexpectedStatus(*failSave);
    }
    stored = trimmed;
}

void InMemoryCredentialStore::deleteAPIKey() {
    if (failDelete) {
        throw KeychainStoreError::unexpectedStatus(*failDelete);
    }
    stored.reset();
}

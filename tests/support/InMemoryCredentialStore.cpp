#include "support/InMemoryCredentialStore.h"

#include "core/CancellableSleep.h"
#include "system/KeychainStoreError.h"

namespace {

// The answer comes after the caller has suspended, as the secret service's does; a cancelled
// operation ends there.
QCoro::Task<void> answerLater(CancellationToken token) {
    co_await cancellableSleep(std::chrono::milliseconds(1), CancellationToken());
    token.throwIfCancelled();
}

} // namespace

QCoro::Task<std::optional<QString>> InMemoryCredentialStore::loadAPIKey(CancellationToken token) {
    co_await answerLater(token);
    if (failLoad) {
        throw KeychainStoreError::unexpectedStatus(*failLoad);
    }
    // A named value: GCC 12 destroys the temporary of a conditional in co_return twice.
    std::optional<QString> answer = loadOverride ? loadOverride : stored;
    co_return answer;
}

QCoro::Task<void> InMemoryCredentialStore::saveAPIKey(QString key, CancellationToken token) {
    ++saveCount;
    co_await answerLater(token);
    if (key.trimmed().isEmpty()) {
        throw KeychainStoreError::invalidCredential();
    }
    if (failSave) {
        throw KeychainStoreError::unexpectedStatus(*failSave);
    }
    stored = key.trimmed();
}

QCoro::Task<void> InMemoryCredentialStore::deleteAPIKey(CancellationToken token) {
    co_await answerLater(token);
    if (failDelete) {
        throw KeychainStoreError::unexpectedStatus(*failDelete);
    }
    stored.reset();
}

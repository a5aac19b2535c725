#pragma once

#include "system/CredentialStoring.h"

#include <optional>

// The credential store contract kept in memory, with switches to make each operation fail the
// way a locked or broken secret store does. Like the real store, it answers on a later turn of
// the event loop.
class InMemoryCredentialStore : public CredentialStoring {
public:
    QCoro::Task<std::optional<QString>> loadAPIKey(CancellationToken token) override;
    QCoro::Task<void> saveAPIKey(QString key, CancellationToken token) override;
    QCoro::Task<void> deleteAPIKey(CancellationToken token) override;

    std::optional<QString> stored;
    // When set, the operation throws KeychainStoreError::unexpectedStatus with this status.
    std::optional<qint32> failLoad;
    std::optional<qint32> failSave;
    std::optional<qint32> failDelete;
    // When set, loads return this instead of what is stored (a store that reads back wrongly).
    std::optional<QString> loadOverride;
    int saveCount = 0;
};

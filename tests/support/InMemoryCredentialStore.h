#pragma once

#include "system/CredentialStoring.h"

#include <optional>

// The credential store contract kept in memory, with switches to make each operation fail the
// way a locked or broken secret store does.
class InMemoryCredentialStore : public CredentialStoring {
public:
    std::optional<QString> loadAPIKey() override;
    void saveAPIKey(const QString& key) override;
    void deleteAPIKey() override;

    std::optional<QString> stored;
    // When set, the operation throws KeychainStoreError::unexpectedStatus with this status.
    std::optional<qint32> failLoad;
    std::optional<qint32> failSave;
    std::optional<qint32> failDelete;
    // When set, loads return this instead of what is stored (a store that reads back wrongly).
    std::optional<QString> loadOverride;
    int saveCount = 0;
};

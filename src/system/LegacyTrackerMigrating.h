#pragma once

#include "core/LegacyMigrationResult.h"

#include <QCoroTask>

// Imports a tracker that an older installation ran as a background service. Safe to run on every
// start; throws LegacyTrackerMigrationError, KeychainStoreError or PlatformError.
class LegacyTrackerMigrating {
public:
    virtual ~LegacyTrackerMigrating() = default;
    virtual QCoro::Task<LegacyMigrationResult> migrateIfNeeded() = 0;
};

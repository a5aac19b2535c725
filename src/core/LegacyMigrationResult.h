#pragma once

// The outcome of one run of the legacy tracker import.
struct LegacyMigrationResult {
    // A key was taken from the tracker configuration file, stored and verified.
    bool importedCredential = false;
    // How many legacy service definition files were deleted after their services stopped (0–2).
    int stoppedServiceCount = 0;

    friend bool operator==(const LegacyMigrationResult&, const LegacyMigrationResult&) = default;
};

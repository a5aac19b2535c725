#pragma once

#include <QString>

#include <optional>

// What the installation knows about itself: where the tracker helper is and which version this is.
class InstallationDescribing {
public:
    virtual ~InstallationDescribing() = default;

    // The helper executable, when the installation has one.
    virtual std::optional<QString> helperExecutablePath() const = 0;
    // Where the helper is expected to be; named in the helper-missing message.
    virtual QString expectedHelperPath() const = 0;
    // The release version ("1.4.0") and build number ("37"), when the build recorded them.
    virtual std::optional<QString> shortVersion() const = 0;
    virtual std::optional<QString> buildVersion() const = 0;
};

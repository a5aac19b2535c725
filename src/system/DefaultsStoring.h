#pragma once

#include <QString>

#include <optional>

// The per-user preferences ("serverURL", "launchAtLogin", "launchAtLoginInitialized").
class DefaultsStoring {
public:
    virtual ~DefaultsStoring() = default;

    virtual std::optional<QString> string(const QString& key) const = 0;
    // False when the key is absent or not a Boolean.
    virtual bool boolean(const QString& key) const = 0;
    virtual void setString(const QString& key, const QString& value) = 0;
    virtual void setBoolean(const QString& key, bool value) = 0;
};

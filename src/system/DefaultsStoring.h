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

    // Why the stored preferences could not be read, while they could not: the store then answers
    // as if nothing were stored and keeps what is written in memory, leaving the file alone.
    virtual std::optional<QString> readProblem() const = 0;
    // The user's own save: makes everything written so far durable, also in place of preferences
    // that could not be read. Throws when it cannot.
    virtual void commit() = 0;
};

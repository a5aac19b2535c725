#pragma once

#include <QString>

// Writes one top-level key of the tracker configuration file. Throws PlatformError.
class TrackerConfigWriting {
public:
    virtual ~TrackerConfigWriting() = default;
    virtual void setValue(const QString& value, const QString& key) = 0;
};

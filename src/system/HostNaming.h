#pragma once

#include <QString>

#include <optional>

class HostNaming {
public:
    virtual ~HostNaming() = default;

    // The machine's display name as the user set it ("Anna's Laptop"), if any.
    virtual std::optional<QString> localizedName() const = 0;
    // The network host name; always available.
    virtual QString hostName() const = 0;
};

#pragma once

// Brings the desktop's start-at-login registration in line with a requested value. Idempotent;
// throws the platform's error (PlatformError) when registering or unregistering fails.
class LoginItemManaging {
public:
    virtual ~LoginItemManaging() = default;
    virtual void setEnabled(bool enabled) = 0;
};

#pragma once

#include "system/SecretServiceAwaiting.h"

#include <QDBusConnection>

#include <chrono>

// Follows the owner of "org.freedesktop.secrets" on the session bus: if no one owns it and the
// bus cannot start it on demand, waits for NameOwnerChanged to announce an owner. Every call to
// the bus itself is bounded; the wait is event-driven, never polled.
class DBusSecretServiceAwaiter : public SecretServiceAwaiting {
public:
    static constexpr std::chrono::milliseconds defaultLimit{std::chrono::minutes(2)};

    explicit DBusSecretServiceAwaiter(QDBusConnection bus,
                                      std::chrono::milliseconds limit = defaultLimit);

    QCoro::Task<void> awaitSecretService() override;

private:
    QDBusConnection m_bus;
    std::chrono::milliseconds m_limit;
};

#pragma once

#include <QString>

// The answer to one poll of a device authorization.
class DeviceAuthorizationPollResult {
public:
    enum class Kind { pending, slowDown, authorized, denied, expired, claimed };

    static DeviceAuthorizationPollResult pending(double interval) {
        return {Kind::pending, interval, {}};
    }
    static DeviceAuthorizationPollResult slowDown(double interval) {
        return {Kind::slowDown, interval, {}};
    }
    static DeviceAuthorizationPollResult authorized(QString apiKey) {
        return {Kind::authorized, 0, std::move(apiKey)};
    }
    static DeviceAuthorizationPollResult denied() { return {Kind::denied, 0, {}}; }
    static DeviceAuthorizationPollResult expired() { return {Kind::expired, 0, {}}; }
    static DeviceAuthorizationPollResult claimed() { return {Kind::claimed, 0, {}}; }

    Kind kind() const { return m_kind; }
    // Seconds; meaningful for pending and slowDown.
    double interval() const { return m_interval; }
    // Never empty for authorized.
    const QString& apiKey() const { return m_apiKey; }

    friend bool operator==(const DeviceAuthorizationPollResult&,
                           const DeviceAuthorizationPollResult&) = default;

private:
    DeviceAuthorizationPollResult(Kind kind, double interval, QString apiKey)
        : m_kind(kind)
        , m_interval(interval)
        , m_apiKey(std::move(apiKey)) {}

    Kind m_kind;
    double m_interval;
    QString m_apiKey;
};

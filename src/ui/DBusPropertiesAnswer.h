#pragma once

#include <QVariantMap>

class QDBusConnection;
class QDBusMessage;

// Answers org.freedesktop.DBus.Properties' Get and GetAll for an object exported by hand (a
// virtual object sees every message), from the properties it currently has. Returns whether the
// message was such a call and was answered; anything else is left to the caller.
namespace DBusPropertiesAnswer {

inline const QString interfaceName = QStringLiteral("org.freedesktop.DBus.Properties");

bool answer(const QDBusMessage& message, const QVariantMap& properties,
            const QDBusConnection& connection);

} // namespace DBusPropertiesAnswer

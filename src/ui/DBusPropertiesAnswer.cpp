#include "ui/DBusPropertiesAnswer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

bool DBusPropertiesAnswer::answer(const QDBusMessage& message, const QVariantMap& properties,
                                  const QDBusConnection& connection) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    if (member == QLatin1String("GetAll")) {
        connection.send(message.createReply(QVariantList{properties}));
        return true;
    }
    if (member == QLatin1String("Get") && arguments.size() == 2 &&
        properties.contains(arguments[1].toString())) {
        connection.send(message.createReply(
            {QVariant::fromValue(QDBusVariant(properties.value(arguments[1].toString())))}));
        return true;
    }
    return false;
}

#include "system/HostnamedHostNamer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QSysInfo>

HostnamedHostNamer::HostnamedHostNamer(QString machineInfoPath)
    : m_machineInfoPath(std::move(machineInfoPath)) {}

std::optional<QString> HostnamedHostNamer::localizedName() const {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (bus.isConnected()) {
        // A bare message rather than a QDBusInterface, whose constructor introspects the service
        // without a bound of ours. Short: this runs on the GUI thread when a helper starts; the
        // file below is the fallback.
        QDBusMessage get = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.hostname1"),
            QStringLiteral("/org/freedesktop/hostname1"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QStringLiteral("org.freedesktop.hostname1") << QStringLiteral("PrettyHostname");
        const QDBusReply<QVariant> reply = bus.call(get, QDBus::Block, 500);
        if (reply.isValid()) {
            const QString pretty = reply.value().toString().trimmed();
            if (!pretty.isEmpty()) {
                return pretty;
            }
        }
    }
    QFile machineInfo(m_machineInfoPath);
    if (machineInfo.open(QIODevice::ReadOnly)) {
        return prettyNameFromMachineInfo(QString::fromUtf8(machineInfo.readAll()));
    }
    return std::nullopt;
}

QString HostnamedHostNamer::hostName() const {
    return QSysInfo::machineHostName();
}

std::optional<QString> HostnamedHostNamer::prettyNameFromMachineInfo(const QString& contents) {
    const QString prefix = QStringLiteral("PRETTY_HOSTNAME=");
    for (const QString& rawLine : contents.split(QLatin1Char('\n'))) {
        const QString line = rawLine.trimmed();
        if (!line.startsWith(prefix)) {
            continue;
        }
        QString value = line.mid(prefix.size());
        if (value.size() >= 2 &&
            (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\'')) &&
            value.back() == value.front()) {
            value = value.mid(1, value.size() - 2);
        }
        value.replace(QLatin1String("\\\""), QLatin1String("\""));
        value.replace(QLatin1String("\\\\"), QLatin1String("\\"));
        value = value.trimmed();
        return value.isEmpty() ? std::nullopt : std::optional(value);
    }
    return std::nullopt;
}

#include "system/AutostartEntry.h"

#include <QHash>

const QString AutostartEntry::markerKey = QStringLiteral("X-Vantrel-LoginItem");

namespace {

QHash<QString, QString> desktopEntryKeys(const QByteArray& contents) {
    QHash<QString, QString> keys;
    bool inDesktopEntry = false;
    for (const QByteArray& rawLine : contents.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        if (line.startsWith(QLatin1Char('['))) {
            inDesktopEntry = line == QStringLiteral("[Desktop Entry]");
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (!inDesktopEntry || equals < 0) {
            continue;
        }
        const QString key = line.first(equals).trimmed();
        if (!keys.contains(key)) {
            keys.insert(key, line.sliced(equals + 1).trimmed());
        }
    }
    return keys;
}

} // namespace

AutostartEntry AutostartEntry::read(const QByteArray& contents) {
    const QHash<QString, QString> keys = desktopEntryKeys(contents);
    AutostartEntry entry;
    entry.ours = keys.value(markerKey) == QStringLiteral("true");
    entry.switchedOff =
        keys.value(QStringLiteral("Hidden")) == QStringLiteral("true") ||
        keys.value(QStringLiteral("X-GNOME-Autostart-enabled")) == QStringLiteral("false");
    entry.exec = keys.value(QStringLiteral("Exec"));
    return entry;
}

#include "system/XdgAutostartLoginItemManager.h"

#include "core/PlatformError.h"
#include "system/AtomicFileWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <cerrno>
#include <unistd.h>

namespace {

const QString markerKey = QStringLiteral("X-Vantrel-LoginItem");

struct EntryState {
    bool ours = false;
    bool switchedOff = false;
    QString exec;
};

// The keys of the [Desktop Entry] group; other groups and localised keys do not matter here.
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

std::optional<EntryState> readEntry(const QString& path) {
    QFile file(path);
    if (!file.exists()) {
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        throw PlatformError(QStringLiteral("Could not read ") + path + QStringLiteral(": ") +
                            file.errorString());
    }
    const QHash<QString, QString> keys = desktopEntryKeys(file.readAll());
    EntryState state;
    state.ours = keys.value(markerKey) == QStringLiteral("true");
    state.switchedOff =
        keys.value(QStringLiteral("Hidden")) == QStringLiteral("true") ||
        keys.value(QStringLiteral("X-GNOME-Autostart-enabled")) == QStringLiteral("false");
    state.exec = keys.value(QStringLiteral("Exec"));
    return state;
}

} // namespace

XdgAutostartLoginItemManager::XdgAutostartLoginItemManager(QString configHome,
                                                           QString executablePath)
    : m_configHome(std::move(configHome))
    , m_executablePath(std::move(executablePath)) {}

QString XdgAutostartLoginItemManager::entryPath() const {
    return QDir(m_configHome).filePath(QStringLiteral("autostart/vantrel.desktop"));
}

QString XdgAutostartLoginItemManager::execValue(const QString& path) {
    // Quoting rule first: inside double quotes, ", `, $ and \ take a backslash. Then the string
    // rule of the file format doubles every backslash again and spells control characters as
    // escapes. "%" would start a field code, so it is doubled.
    QString quoted;
    for (const QChar c : path) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
            c == QLatin1Char('\\')) {
            quoted.append(QLatin1Char('\\'));
        }
        quoted.append(c);
    }
    QString value = QStringLiteral("\"");
    for (const QChar c : quoted) {
        if (c == QLatin1Char('\\')) {
            value.append(QStringLiteral("\\\\"));
        } else if (c == QLatin1Char('\n')) {
            value.append(QStringLiteral("\\n"));
        } else if (c == QLatin1Char('\t')) {
            value.append(QStringLiteral("\\t"));
        } else if (c == QLatin1Char('\r')) {
            value.append(QStringLiteral("\\r"));
        } else if (c == QLatin1Char('%')) {
            value.append(QStringLiteral("%%"));
        } else {
            value.append(c);
        }
    }
    value.append(QLatin1Char('"'));
    return value;
}

QByteArray XdgAutostartLoginItemManager::entryContents() const {
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Vantrel\n"
                                        "Comment=Keeps the local activity tracker running\n"
                                        "Exec=") +
                         execValue(m_executablePath) +
                         QStringLiteral("\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n") +
                         markerKey + QStringLiteral("=true\n");
    return text.toUtf8();
}

void XdgAutostartLoginItemManager::setEnabled(bool enabled) {
    const QString path = entryPath();
    const std::optional<EntryState> entry = readEntry(path);
    const bool registered = entry && entry->ours && !entry->switchedOff;

    if (enabled) {
        if (registered && entry->exec == execValue(m_executablePath)) {
            return;
        }
        AtomicFileWriter::createDirectory(QFileInfo(path).absolutePath());
        // A link here usually points at the application's menu entry, which is not ours to change.
        AtomicFileWriter::write(path, entryContents(), 0644,
                                AtomicFileWriter::SymbolicLinks::replace);
    } else if (registered) {
        if (::unlink(QFile::encodeName(path).constData()) != 0 && errno != ENOENT) {
            throw PlatformError::fromErrno(QStringLiteral("Could not remove ") + path, errno);
        }
    }
}

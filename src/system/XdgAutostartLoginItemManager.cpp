#include "system/XdgAutostartLoginItemManager.h"

#include "core/PlatformError.h"
#include "system/AtomicFileWriter.h"
#include "system/AutostartEntry.h"
#include "system/BoundedFileReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <unistd.h>

namespace {

std::optional<AutostartEntry> readEntry(const QString& path) {
    // Also absent when a file stands where the folder belongs: there is nothing to remove then.
    if (!QFileInfo::exists(path)) {
        return std::nullopt;
    }
    const std::optional<QByteArray> contents = BoundedFileReader::read(path);
    if (!contents) {
        return std::nullopt;
    }
    return AutostartEntry::read(*contents);
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
                         AutostartEntry::markerKey + QStringLiteral("=true\n");
    return text.toUtf8();
}

void XdgAutostartLoginItemManager::setEnabled(bool enabled) {
    const QString path = entryPath();
    const std::optional<AutostartEntry> entry = readEntry(path);
    const bool registered = entry && entry->registered();

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

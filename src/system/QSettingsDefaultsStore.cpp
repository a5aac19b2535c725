#include "system/QSettingsDefaultsStore.h"

#include "core/PlatformError.h"
#include "system/AtomicFileWriter.h"
#include "system/BoundedFileReader.h"
#include "system/OwnerOnlyAccess.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringDecoder>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace {

bool entryExists(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

// Whether QSettings may be left to read the file: it is absent, or a regular file of a sane
// size in UTF-8. QSettings itself would wait on a FIFO forever, read a file of any size whole,
// and read bytes that are not UTF-8 as replacement characters and write those back.
bool safeToRead(const QString& path) {
    if (!entryExists(path)) {
        return true; // also when a file stands where the folder belongs: only saving fails then
    }
    std::optional<QByteArray> bytes;
    try {
        bytes = BoundedFileReader::read(path);
    } catch (const PlatformError&) {
        return false;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes.value_or(QByteArray()));
    return !decoder.hasError();
}

} // namespace

// The native format is the one the desktop's own tools and our documentation name:
// $XDG_CONFIG_HOME/Vantrel/Vantrel.conf. (The INI format would write Vantrel.ini beside it and
// ignore a file a user or an administrator put where the documentation says.)
QSettingsDefaultsStore::QSettingsDefaultsStore()
    : m_fileName(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                 QStringLiteral("/Vantrel/Vantrel.conf")) {
    open([] {
        return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                           QStringLiteral("Vantrel"), QStringLiteral("Vantrel"));
    });
}

QSettingsDefaultsStore::QSettingsDefaultsStore(const QString& fileName)
    : m_fileName(fileName) {
    open([&] { return std::make_unique<QSettings>(fileName, QSettings::NativeFormat); });
}

QString QSettingsDefaultsStore::unreadableSuffix() {
    return QStringLiteral(".unreadable");
}

void QSettingsDefaultsStore::open(const std::function<std::unique_ptr<QSettings>()>& settings) {
    // Modes an earlier version or a lax umask left are tightened before anything is read.
    OwnerOnlyAccess::tighten(QFileInfo(m_fileName).absolutePath());
    OwnerOnlyAccess::tighten(m_fileName);
    // QSettings reads a folder or an unreadable file as "nothing stored" and would later write
    // over a file it could only half parse; both count as unreadable here, and QSettings is
    // not even given a file it could hang on.
    if (!safeToRead(m_fileName)) {
        m_unreadable = true;
        return;
    }
    m_settings = settings();
    m_fileName = m_settings->fileName();
    // The file is read on first use; only then does the status say anything.
    m_settings->allKeys();
    m_unreadable = m_settings->status() != QSettings::NoError;
}

void QSettingsDefaultsStore::sync() {
    // Created here, not by QSettings, which would take the folder's mode from the umask; and
    // QSettings replaces the file with one it makes under the umask too.
    try {
        AtomicFileWriter::createDirectory(QFileInfo(m_fileName).absolutePath());
    } catch (const PlatformError&) {
        // Then QSettings cannot write either, and says so.
    }
    m_settings->sync();
    OwnerOnlyAccess::tighten(m_fileName);
}

std::optional<QString> QSettingsDefaultsStore::readProblem() const {
    if (!m_unreadable) {
        return std::nullopt;
    }
    return QStringLiteral("The preferences in ") + m_fileName +
           QStringLiteral(" could not be read, so Vantrel is using the defaults. Saving the "
                          "settings starts a new file and keeps the unreadable one beside it.");
}

QVariant QSettingsDefaultsStore::value(const QString& key) const {
    return m_unreadable ? m_held.value(key) : m_settings->value(key);
}

std::optional<QString> QSettingsDefaultsStore::string(const QString& key) const {
    const QVariant stored = value(key);
    if (!stored.isValid() || !stored.canConvert<QString>()) {
        return std::nullopt;
    }
    return stored.toString();
}

bool QSettingsDefaultsStore::boolean(const QString& key) const {
    // An INI file keeps Booleans as the words "true" and "false"; anything else is not one.
    const QVariant stored = value(key);
    if (stored.typeId() == QMetaType::Bool) {
        return stored.toBool();
    }
    return stored.toString() == QLatin1String("true");
}

void QSettingsDefaultsStore::setString(const QString& key, const QString& value) {
    write(key, value);
}

void QSettingsDefaultsStore::setBoolean(const QString& key, bool value) {
    write(key, value);
}

void QSettingsDefaultsStore::write(const QString& key, const QVariant& value) {
    if (m_unreadable) {
        m_held.insert(key, value);
        return;
    }
    // What the file already says is not written again, so a read-only preferences folder does not
    // stand in the way of a start that changes nothing. (A Boolean reads back as its word.)
    const QVariant stored = m_settings->value(key);
    if (stored.isValid() && stored.toString() == value.toString()) {
        return;
    }
    m_settings->setValue(key, value);
    sync();
}

void QSettingsDefaultsStore::moveUnreadableAside() const {
    const QString& path = m_fileName;
    if (!entryExists(path)) {
        return;
    }
    // Never over an earlier one: each could hold something the user still wants.
    QString aside = path + unreadableSuffix();
    for (int n = 2; entryExists(aside); ++n) {
        aside = path + unreadableSuffix() + QLatin1Char('-') + QString::number(n);
    }
    if (std::rename(QFile::encodeName(path).constData(), QFile::encodeName(aside).constData()) !=
        0) {
        throw PlatformError::fromErrno(
            QStringLiteral("Could not move the unreadable preferences in ") + path +
                QStringLiteral(" aside"),
            errno);
    }
}

void QSettingsDefaultsStore::commit() {
    const QString& path = m_fileName;
    if (m_unreadable) {
        moveUnreadableAside();
        // A fresh object, and only once the old one is gone: that one still holds what it half
        // parsed and would write it back.
        m_settings.reset();
        m_settings = std::make_unique<QSettings>(path, QSettings::NativeFormat);
        for (auto held = m_held.cbegin(); held != m_held.cend(); ++held) {
            m_settings->setValue(held.key(), held.value());
        }
    }
    sync();
    if (m_settings->status() != QSettings::NoError) {
        throw PlatformError(QStringLiteral("Could not save the preferences in ") + path +
                            QStringLiteral("."));
    }
    m_unreadable = false;
    m_held.clear();
}

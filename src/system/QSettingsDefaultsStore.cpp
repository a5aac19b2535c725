#include "system/QSettingsDefaultsStore.h"

#include "core/PlatformError.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace {

bool entryExists(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

// QSettings reads bytes that are not UTF-8 as replacement characters and would write those back.
bool holdsOnlyUtf8(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return true; // absent, or QSettings has already said it cannot read it
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(file.readAll());
    return !decoder.hasError();
}

} // namespace

// The native format is the one the desktop's own tools and our documentation name:
// $XDG_CONFIG_HOME/Vantrel/Vantrel.conf. (The INI format would write Vantrel.ini beside it and
// ignore a file a user or an administrator put where the documentation says.)
QSettingsDefaultsStore::QSettingsDefaultsStore()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Vantrel"),
                                             QStringLiteral("Vantrel"))) {
    checkReadable();
}

QSettingsDefaultsStore::QSettingsDefaultsStore(const QString& fileName)
    : m_settings(std::make_unique<QSettings>(fileName, QSettings::NativeFormat)) {
    checkReadable();
}

QString QSettingsDefaultsStore::unreadableSuffix() {
    return QStringLiteral(".unreadable");
}

void QSettingsDefaultsStore::checkReadable() {
    // QSettings reads a folder or an unreadable file as "nothing stored" and would later write
    // over a file it could only half parse; both count as unreadable here.
    // The file is read on first use; only then does the status say anything.
    m_settings->allKeys();
    const QFileInfo file(m_settings->fileName());
    m_unreadable = m_settings->status() != QSettings::NoError ||
                   (file.exists() && !file.isFile()) || !holdsOnlyUtf8(file.absoluteFilePath());
}

std::optional<QString> QSettingsDefaultsStore::readProblem() const {
    if (!m_unreadable) {
        return std::nullopt;
    }
    return QStringLiteral("The preferences in ") + m_settings->fileName() +
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
    m_settings->setValue(key, value);
    m_settings->sync();
}

void QSettingsDefaultsStore::moveUnreadableAside() const {
    const QString path = m_settings->fileName();
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
    const QString path = m_settings->fileName();
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
    m_settings->sync();
    if (m_settings->status() != QSettings::NoError) {
        throw PlatformError(QStringLiteral("Could not save the preferences in ") + path +
                            QStringLiteral("."));
    }
    m_unreadable = false;
    m_held.clear();
}

#include "system/QSettingsDefaultsStore.h"

// The native format is the one the desktop's own tools and our documentation name:
// $XDG_CONFIG_HOME/Vantrel/Vantrel.conf. (The INI format would write Vantrel.ini beside it and
// ignore a file a user or an administrator put where the documentation says.)
QSettingsDefaultsStore::QSettingsDefaultsStore()
    : m_settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Vantrel"),
                 QStringLiteral("Vantrel")) {}

QSettingsDefaultsStore::QSettingsDefaultsStore(const QString& fileName)
    : m_settings(fileName, QSettings::NativeFormat) {}

std::optional<QString> QSettingsDefaultsStore::string(const QString& key) const {
    const QVariant value = m_settings.value(key);
    if (!value.isValid() || !value.canConvert<QString>()) {
        return std::nullopt;
    }
    return value.toString();
}

bool QSettingsDefaultsStore::boolean(const QString& key) const {
    // An INI file keeps Booleans as the words "true" and "false"; anything else is not one.
    const QVariant value = m_settings.value(key);
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool();
    }
    return value.toString() == QLatin1String("true");
}

void QSettingsDefaultsStore::setString(const QString& key, const QString& value) {
    write(key, value);
}

void QSettingsDefaultsStore::setBoolean(const QString& key, bool value) {
    write(key, value);
}

void QSettingsDefaultsStore::write(const QString& key, const QVariant& value) {
    // A file QSettings could not parse is left as it is rather than replaced by one holding only
    // this key: the user may still want what was in it.
    if (m_settings.status() == QSettings::FormatError) {
        return;
    }
    m_settings.setValue(key, value);
    m_settings.sync();
}

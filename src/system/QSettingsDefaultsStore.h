#pragma once

#include "system/DefaultsStoring.h"

#include <QSettings>

// The per-user preferences in QSettings ("Vantrel"/"Vantrel"):
// $XDG_CONFIG_HOME/Vantrel/Vantrel.conf.
class QSettingsDefaultsStore : public DefaultsStoring {
public:
    QSettingsDefaultsStore();
    // For tests: an explicit file in the same format.
    explicit QSettingsDefaultsStore(const QString& fileName);

    std::optional<QString> string(const QString& key) const override;
    bool boolean(const QString& key) const override;
    void setString(const QString& key, const QString& value) override;
    void setBoolean(const QString& key, bool value) override;

private:
    void write(const QString& key, const QVariant& value);

    QSettings m_settings;
};

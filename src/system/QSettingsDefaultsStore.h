#pragma once

#include "system/DefaultsStoring.h"

#include <QHash>
#include <QSettings>
#include <QVariant>

#include <functional>
#include <memory>

// The per-user preferences in QSettings ("Vantrel"/"Vantrel"):
// $XDG_CONFIG_HOME/Vantrel/Vantrel.conf.
//
// A file that cannot be read or parsed (garbage, invalid UTF-8, a folder in its place) is never
// replaced behind the user's back: until commit() the store answers from memory, and commit()
// moves whatever is in the way aside (Vantrel.conf.unreadable) before it writes a new file.
// The folder and the file are kept to their owner (0700, 0600), and a value the file already
// holds is not written again.
class QSettingsDefaultsStore : public DefaultsStoring {
public:
    QSettingsDefaultsStore();
    // For tests: an explicit file in the same format.
    explicit QSettingsDefaultsStore(const QString& fileName);

    std::optional<QString> string(const QString& key) const override;
    bool boolean(const QString& key) const override;
    void setString(const QString& key, const QString& value) override;
    void setBoolean(const QString& key, bool value) override;
    std::optional<QString> readProblem() const override;
    void commit() override;

    // Where commit() keeps an unreadable file: beside it, with this suffix.
    static QString unreadableSuffix();

private:
    void open(const std::function<std::unique_ptr<QSettings>()>& settings);
    void sync();
    QVariant value(const QString& key) const;
    void write(const QString& key, const QVariant& value);
    void moveUnreadableAside() const;

    QString m_fileName;
    // Absent while the file is unreadable.
    std::unique_ptr<QSettings> m_settings;
    bool m_unreadable = false;
    // What was written while the file could not be read.
    QHash<QString, QVariant> m_held;
};

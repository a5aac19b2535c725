#pragma once

#include "system/LoginItemManaging.h"

#include <QByteArray>
#include <QString>

// Launch at login through the desktop's autostart folder: the entry
// `<config home>/autostart/vantrel.desktop`.
//
// The entry counts as registered when it is there, carries our marker key and is not switched
// off by the user (Hidden=true, or X-GNOME-Autostart-enabled=false). Enabling writes our entry
// atomically when it is not registered, replacing a foreign or switched-off file of that name;
// disabling removes it only when it is registered, so a file we did not write, or one the user
// switched off, stays. A registered entry that starts some other executable (the application
// moved) is rewritten on enable.
class XdgAutostartLoginItemManager : public LoginItemManaging {
public:
    // `configHome` is $XDG_CONFIG_HOME (normally ~/.config); `executablePath` is what the
    // entry starts.
    XdgAutostartLoginItemManager(QString configHome, QString executablePath);

    void setEnabled(bool enabled) override;

    QString entryPath() const;
    // The whole entry file as written.
    QByteArray entryContents() const;
    // The Exec value for `path`, quoted and escaped for a desktop entry.
    static QString execValue(const QString& path);

private:
    QString m_configHome;
    QString m_executablePath;
};

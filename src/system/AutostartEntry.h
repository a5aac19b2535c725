#pragma once

#include <QByteArray>
#include <QString>

// What an existing autostart entry says about launch at login, read from the keys of its
// [Desktop Entry] group (the first occurrence of a key counts; other groups and localised keys
// do not matter here).
struct AutostartEntry {
    // It carries our marker key.
    bool ours = false;
    // The user switched it off: Hidden=true, or X-GNOME-Autostart-enabled=false.
    bool switchedOff = false;
    // The Exec value as it stands in the file.
    QString exec;

    static const QString markerKey;

    bool registered() const { return ours && !switchedOff; }

    // Never fails: a file that is not a desktop entry at all is simply not ours.
    static AutostartEntry read(const QByteArray& contents);

    friend bool operator==(const AutostartEntry&, const AutostartEntry&) = default;
};

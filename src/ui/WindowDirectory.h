#pragma once

#include <QHash>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <functional>

// The application's windows by identity ("settings", "diagnostics"): each exists at most once, is
// made on first opening and brought forward when opened again. A window the factory marks
// Qt::WA_DeleteOnClose is made afresh after each closing; any still open go with the directory.
class WindowDirectory {
public:
    using Factory = std::function<QWidget*()>;

    WindowDirectory() = default;
    WindowDirectory(const WindowDirectory&) = delete;
    WindowDirectory& operator=(const WindowDirectory&) = delete;
    ~WindowDirectory();

    void add(const QString& identifier, Factory factory);
    // Opens the window; false for an identity nobody added.
    bool open(const QString& identifier);
    QWidget* window(const QString& identifier) const;

private:
    struct Entry {
        Factory factory;
        QPointer<QWidget> window;
    };
    QHash<QString, Entry> m_entries;
};

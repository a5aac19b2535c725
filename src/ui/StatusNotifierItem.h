#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QPoint>

#include <functional>
#include <memory>

class DBusMenuExporter;
class TrayIconPresenter;
class TrayMenuPresenter;

// Our icon in a StatusNotifierItem tray (org.kde.StatusNotifierItem), with its menu, served on a
// bus connection of its own and registered with the session's StatusNotifierWatcher once the
// watcher has a host. One lives per watcher: when the watcher goes, so does the item, and the next
// watcher gets a new one on a new connection, so no host keeps an item that no longer answers.
//
// Ours rather than Qt's: Qt decides once per process whether such a tray exists, drops the click
// position that hosts send with Activate(x, y), and exports only an icon and a menu.
class StatusNotifierItem : public QDBusVirtualObject {
    Q_OBJECT
public:
    static constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";
    static constexpr const char* itemPath = "/StatusNotifierItem";
    static constexpr const char* menuPath = "/MenuBar";

    struct Handlers {
        // A primary click on the icon, at the position the host reports (global coordinates,
        // which some hosts leave at zero).
        std::function<void(QPoint)> activate;
        // The host asks the item to show its own menu there.
        std::function<void(QPoint)> showMenu;
    };

    StatusNotifierItem(TrayIconPresenter& icon, TrayMenuPresenter& menu, Handlers handlers,
                       QObject* parent = nullptr);
    ~StatusNotifierItem() override;

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private Q_SLOTS:
    void registerWithWatcher();

private:
    void render();
    QVariantMap properties() const;
    QPoint position(const QVariantList& arguments) const;

    TrayIconPresenter& m_icon;
    Handlers m_handlers;
    QString m_connectionName;
    QDBusConnection m_connection;
    std::unique_ptr<DBusMenuExporter> m_menu;
    QVariant m_pixmaps;
    QString m_status;
    bool m_registered = false;
};

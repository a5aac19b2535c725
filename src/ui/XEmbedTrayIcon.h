#pragma once

#include <QObject>
#include <QSystemTrayIcon>

#include <functional>

class TrayIconPresenter;
class TrayMenu;

// Our icon in an XEmbed tray, through QSystemTrayIcon. Made only while no StatusNotifierWatcher
// is on the bus: Qt 6.4 decides between its D-Bus item and XEmbed when the first QSystemTrayIcon
// is made, and keeps that answer for good, so the first one must see no watcher. (Should a
// watcher arrive in that very instant, the icon goes to the watcher, which then has ours too.)
// Qt docks the icon again by itself when the tray restarts.
class XEmbedTrayIcon : public QObject {
    Q_OBJECT
public:
    // A click on the icon, with the icon's place on the screen.
    using Activation = std::function<void(const QRect& anchor)>;

    XEmbedTrayIcon(TrayIconPresenter& presenter, TrayMenu& menu, Activation activate,
                   QObject* parent = nullptr);

private:
    void render();

    TrayIconPresenter& m_presenter;
    Activation m_activate;
    QSystemTrayIcon m_icon;
};

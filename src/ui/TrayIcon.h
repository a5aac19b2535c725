#pragma once

#include <QObject>
#include <QSystemTrayIcon>

class PanelWindow;
class TrayIconPresenter;
class TrayMenu;

// The icon in the tray: the mark with its health badge, the status as tooltip, a click toggling
// the panel beside it, and the context menu.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    TrayIcon(TrayIconPresenter& presenter, TrayMenu& menu, PanelWindow& panel,
             QObject* parent = nullptr);

private:
    void render();
    void onActivated(QSystemTrayIcon::ActivationReason reason);
    QRect anchor() const;

    TrayIconPresenter& m_presenter;
    PanelWindow& m_panel;
    QSystemTrayIcon m_icon;
};

#pragma once

#include <QMenu>

class MenuBarPresenter;

// The tray icon's context menu: "Open Vantrel", then the panel's actions. On GNOME a left click on
// the icon opens this menu and never activates the icon, so everything must be reachable here.
// The menu is built once and only its actions change: hosts that show an exported menu have
// crashed clients that replaced it.
class TrayMenu : public QMenu {
    Q_OBJECT
public:
    TrayMenu(MenuBarPresenter& presenter, QWidget* parent = nullptr);

    QAction* openAction() const { return m_open; }

Q_SIGNALS:
    void openRequested();

private:
    void update();

    MenuBarPresenter& m_presenter;
    QAction* m_open;
    QAction* m_settings;
    QAction* m_diagnostics;
    QAction* m_signIn;
    QAction* m_signOut;
    QAction* m_quit;
};

#pragma once

#include <QObject>

#include <memory>

class PanelWindow;
class TrayHostWatching;
class TrayIcon;
class TrayIconPresenter;
class TrayMenu;

// Keeps the tray icon in step with the session's tray: the icon exists only while there is a
// tray; without one the panel becomes an ordinary window and is shown, so the application is
// never left without a way in.
class TrayPresence : public QObject {
    Q_OBJECT
public:
    TrayPresence(TrayHostWatching& host, TrayIconPresenter& presenter, TrayMenu& menu,
                 PanelWindow& panel, QObject* parent = nullptr);
    ~TrayPresence() override;

    bool hasTrayIcon() const { return m_icon != nullptr; }
    // Activation from outside (a second start, the desktop's launcher): the panel beside the
    // cursor with a tray, else the window.
    void activate();

private:
    void follow(bool available);

    TrayIconPresenter& m_presenter;
    TrayMenu& m_menu;
    PanelWindow& m_panel;
    std::unique_ptr<TrayIcon> m_icon;
};

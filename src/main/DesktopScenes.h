#pragma once

#include "ui/SecondaryTextColour.h"
#include "ui/WindowDirectory.h"

#include <QObject>

#include <memory>

class AppState;
class HeapTrimmer;
class MenuBarPresenter;
class MenuBarView;
class PanelWindow;
class QApplicationController;
class SettingsPresenter;
class TrayHostWatching;
class TrayIconPresenter;
class TrayMenu;
class TrayMenuPresenter;
class TrayPresence;

// Everything the user sees, built once over the one AppState: the tray icon and its panel (or the
// panel as a window when the session has no tray), and the Settings and Diagnostics windows.
class DesktopScenes {
public:
    // The trimmer runs after a window or the panel was closed.
    DesktopScenes(AppState& appState, QApplicationController& application, HeapTrimmer& trimmer);
    ~DesktopScenes();

    // org.freedesktop.Application: Activate, and the actions that open a window.
    void activate();
    bool activateAction(const QString& action);

    static constexpr const char* applicationId = "com.keldor.Vantrel";
    static constexpr const char* objectPath = "/com/keldor/Vantrel";

private:
    SecondaryTextColour m_secondaryText;
    // Outlives the Settings windows it serves: what the user typed survives closing the window.
    std::unique_ptr<SettingsPresenter> m_settings;
    WindowDirectory m_windows;
    std::unique_ptr<MenuBarPresenter> m_presenter;
    std::unique_ptr<TrayIconPresenter> m_trayPresenter;
    std::unique_ptr<PanelWindow> m_panel;
    std::unique_ptr<TrayMenuPresenter> m_menuPresenter;
    std::unique_ptr<TrayMenu> m_menu;
    std::unique_ptr<TrayHostWatching> m_statusNotifierHost;
    std::unique_ptr<TrayHostWatching> m_xembedHost;
    std::unique_ptr<TrayPresence> m_presence;
};

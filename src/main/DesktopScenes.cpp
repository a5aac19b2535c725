#include "main/DesktopScenes.h"

#include "app/AppState.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/MenuBarPresenter.h"
#include "ui/MenuBarView.h"
#include "ui/PanelWindow.h"
#include "ui/QApplicationController.h"
#include "ui/QTimerTicker.h"
#include "ui/SettingsWindow.h"
#include "ui/StatusNotifierTrayHostWatcher.h"
#include "ui/TrayIconPresenter.h"
#include "ui/TrayMenu.h"
#include "ui/TrayPresence.h"

#include <QDBusConnection>

DesktopScenes::DesktopScenes(AppState& appState, QApplicationController& application) {
    // Made on first opening: most sessions never open either window.
    m_windows.add(QStringLiteral("settings"), [&appState] { return new SettingsWindow(appState); });
    m_windows.add(QStringLiteral("diagnostics"),
                  [&appState] { return new DiagnosticsWindow(appState, *appState.supervisor()); });
    application.settingsWindowOpener = [this] { m_windows.open(QStringLiteral("settings")); };

    m_presenter = std::make_unique<MenuBarPresenter>(
        appState, *appState.supervisor(), [] { return QDateTime::currentDateTimeUtc(); },
        [] { return std::make_unique<QTimerTicker>(); },
        [this](const QString& identifier) { m_windows.open(identifier); });
    m_trayPresenter = std::make_unique<TrayIconPresenter>(appState);
    m_panel = std::make_unique<PanelWindow>(new MenuBarView(*m_presenter));
    m_menu = std::make_unique<TrayMenu>(*m_presenter);
    m_trayHost = std::make_unique<StatusNotifierTrayHostWatcher>(QDBusConnection::sessionBus());
    m_presence = std::make_unique<TrayPresence>(*m_trayHost, *m_trayPresenter, *m_menu, *m_panel);
}

DesktopScenes::~DesktopScenes() {
    // The tray icon refers to the menu and the panel; it goes first.
    m_presence.reset();
}

void DesktopScenes::activate() {
    m_presence->activate();
}

bool DesktopScenes::activateAction(const QString& action) {
    if (action == QLatin1String("settings")) {
        m_presenter->openSettings();
    } else if (action == QLatin1String("diagnostics")) {
        m_presenter->openDiagnostics();
    } else {
        return false;
    }
    return true;
}

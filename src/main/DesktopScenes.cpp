#include "main/DesktopScenes.h"

#include "app/AppState.h"
#include "main/HeapTrimmer.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/MenuBarPresenter.h"
#include "ui/MenuBarView.h"
#include "ui/PanelWindow.h"
#include "ui/QApplicationController.h"
#include "ui/QTimerTicker.h"
#include "ui/SettingsWindow.h"
#include "ui/StatusNotifierItem.h"
#include "ui/StatusNotifierTrayHostWatcher.h"
#include "ui/TrayIconPresenter.h"
#include "ui/TrayMenu.h"
#include "ui/TrayMenuPresenter.h"
#include "ui/TrayPresence.h"
#include "ui/XEmbedTrayHostWatcher.h"
#include "ui/XEmbedTrayIcon.h"

#include <QDBusConnection>

namespace {

QWidget* releasedOnClose(QWidget* window, HeapTrimmer& trimmer) {
    window->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(window, &QObject::destroyed, &trimmer, &HeapTrimmer::schedule);
    return window;
}

} // namespace

DesktopScenes::DesktopScenes(AppState& appState, QApplicationController& application,
                             HeapTrimmer& trimmer) {
    // Made on each opening and released on closing: most of the day no window is open, and
    // neither window holds anything of its own beyond the Settings form's edits.
    m_windows.add(QStringLiteral("settings"), [this, &appState, &trimmer] {
        if (!m_settings) {
            m_settings = std::make_unique<SettingsPresenter>(appState);
        }
        return releasedOnClose(new SettingsWindow(*m_settings), trimmer);
    });
    m_windows.add(QStringLiteral("diagnostics"), [&appState, &trimmer] {
        return releasedOnClose(new DiagnosticsWindow(appState, *appState.supervisor()), trimmer);
    });
    application.settingsWindowOpener = [this] { m_windows.open(QStringLiteral("settings")); };

    m_presenter = std::make_unique<MenuBarPresenter>(
        appState, *appState.supervisor(), [] { return QDateTime::currentDateTimeUtc(); },
        [] { return std::make_unique<QTimerTicker>(); },
        [this](const QString& identifier) { m_windows.open(identifier); });
    m_trayPresenter = std::make_unique<TrayIconPresenter>(appState);
    m_panel = std::make_unique<PanelWindow>([this, &trimmer] {
        auto* content = new MenuBarView(*m_presenter);
        QObject::connect(content, &QObject::destroyed, &trimmer, &HeapTrimmer::schedule);
        return content;
    });
    m_menuPresenter = std::make_unique<TrayMenuPresenter>(
        *m_presenter, [] { return std::make_unique<QTimerTicker>(); });
    m_menu = std::make_unique<TrayMenu>(*m_menuPresenter);
    m_statusNotifierHost =
        std::make_unique<StatusNotifierTrayHostWatcher>(QDBusConnection::sessionBus());
    m_xembedHost = std::make_unique<XEmbedTrayHostWatcher>();
    m_presence = std::make_unique<TrayPresence>(
        *m_statusNotifierHost, *m_xembedHost, *m_panel,
        [this](TrayPresence::Host host) -> std::unique_ptr<QObject> {
            if (host == TrayPresence::Host::statusNotifier) {
                return std::make_unique<StatusNotifierItem>(
                    *m_trayPresenter, *m_menuPresenter,
                    StatusNotifierItem::Handlers{
                        .activate = [this](QPoint at) { m_presence->toggleAt(at); },
                        .showMenu = [this](QPoint at) { m_menu->popup(at); },
                    });
            }
            return std::make_unique<XEmbedTrayIcon>(
                *m_trayPresenter, *m_menu,
                [this](const QRect& anchor) { m_presence->toggleBeside(anchor); });
        });
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

#pragma once

#include <QObject>
#include <QPoint>

#include <functional>
#include <memory>

class PanelWindow;
class TrayHostWatching;

// Keeps the application reachable whatever the session's trays do: an icon in a
// StatusNotifierItem tray where there is one (it takes the click position and the whole menu),
// else in an XEmbed tray, else no icon and the panel as an ordinary window, shown. Trays may come,
// go and restart at any moment and in any order; each change is followed at once, and there is
// never a moment with neither an icon nor the window.
class TrayPresence : public QObject {
    Q_OBJECT
public:
    enum class Host { none, statusNotifier, xembed };
    // Makes our icon for that kind of tray; the presence keeps it while that tray is in use.
    using IconFactory = std::function<std::unique_ptr<QObject>(Host)>;

    TrayPresence(TrayHostWatching& statusNotifier, TrayHostWatching& xembed, PanelWindow& panel,
                 IconFactory makeIcon, QObject* parent = nullptr);
    ~TrayPresence() override;

    Host host() const { return m_host; }
    // Activation from outside (a second start, the desktop's launcher): the panel beside the
    // cursor with a tray, else the window.
    void activate();
    // A click on the icon, at a point the host reported or the icon's place on the screen.
    void toggleAt(QPoint position);
    void toggleBeside(const QRect& anchor);

private:
    void follow();

    TrayHostWatching& m_statusNotifier;
    TrayHostWatching& m_xembed;
    PanelWindow& m_panel;
    IconFactory m_makeIcon;
    Host m_host = Host::none;
    std::unique_ptr<QObject> m_icon;
};

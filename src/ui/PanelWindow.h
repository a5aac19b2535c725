#pragma once

#include <QElapsedTimer>
#include <QRect>
#include <QWidget>

// The top-level window around the panel's content. With a tray it is a frameless tool window
// beside the icon that closes on Escape and when the application loses focus; without one it is
// an ordinary window titled "Vantrel"; closing it only hides it (the application does not quit
// when its last window closes). Refusing the close instead would also refuse quitting, which
// closes every window first.
//
// Not a Qt::Popup: Qt does not expose popups to the accessibility bus, and on Wayland a popup
// needs a parent window that has had input.
class PanelWindow : public QWidget {
    Q_OBJECT
public:
    // A trigger this soon after the panel hid itself is the same click that took the focus away:
    // ignoring it keeps the click on the icon a plain toggle.
    static constexpr int retriggerGuardMilliseconds = 300;

    explicit PanelWindow(QWidget* content, QWidget* parent = nullptr);

    void setTrayMode(bool trayMode);
    bool isTrayMode() const { return m_trayMode; }

    // The tray icon was clicked: open beside `anchor` (in global coordinates), or close.
    void toggle(const QRect& anchor);
    // Show (and raise) the panel or window, beside `anchor` in tray mode.
    void present(const QRect& anchor);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void applyWindowFlags();
    void placeBeside(const QRect& anchor);
    void hideAutomatically();

    bool m_trayMode = false;
    QElapsedTimer m_sinceAutomaticHide;
};

#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QRect>
#include <QWidget>

#include <functional>

// The top-level window around the panel's content. With a tray it is a frameless tool window
// beside the icon that closes on Escape and when the application loses focus; without one it is
// an ordinary window titled "Vantrel"; closing it only hides it (the application does not quit
// when its last window closes). Refusing the close instead would also refuse quitting, which
// closes every window first.
//
// The content is made each time the panel opens and released when it hides: most of the day
// nobody looks at it, and it holds nothing of its own (its presenter does).
//
// Not a Qt::Popup: Qt does not expose popups to the accessibility bus, and on Wayland a popup
// needs a parent window that has had input.
class PanelWindow : public QWidget {
    Q_OBJECT
public:
    // A trigger this soon after the panel hid itself is the same click that took the focus away:
    // ignoring it keeps the click on the icon a plain toggle.
    static constexpr int retriggerGuardMilliseconds = 300;

    using ContentFactory = std::function<QWidget*()>;

    explicit PanelWindow(ContentFactory makeContent, QWidget* parent = nullptr);

    void setTrayMode(bool trayMode);
    bool isTrayMode() const { return m_trayMode; }

    // The tray icon was clicked: open beside `anchor` (in global coordinates), or close.
    void toggle(const QRect& anchor);
    // Show (and raise) the panel or window, beside `anchor` in tray mode.
    void present(const QRect& anchor);

    // The content while the panel is shown; null while it is hidden.
    QWidget* content() const { return m_content; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void makeContent();
    void applyWindowFlags();
    void placeBeside(const QRect& anchor);
    void hideAutomatically();

    ContentFactory m_makeContent;
    QPointer<QWidget> m_content;
    bool m_trayMode = false;
    QElapsedTimer m_sinceAutomaticHide;
};

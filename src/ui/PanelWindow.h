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

    // The tray icon was clicked: open beside the icon's geometry (global coordinates; empty when
    // the tray gives none, and then beside the cursor), or close.
    void toggle(const QRect& iconGeometry);
    // The tray host reported a click at `hostPosition` (global coordinates): open beside it, or
    // close. (0, 0), what hosts send when they know no position, opens beside the cursor.
    void toggleAt(const QPoint& hostPosition);
    // Show (and raise) the panel or window, beside `anchor` in tray mode.
    void present(const QRect& anchor);
    // One of our windows opened from the panel: the panel, always on top, steps out of its way.
    // An ordinary window stays.
    void dismiss();

    // The content while the panel is shown; null while it is hidden.
    QWidget* content() const { return m_content; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void makeContent();
    void applyWindowFlags();
    void toggleBeside(const QRect& anchor);
    void place();
    void hideAutomatically();

    ContentFactory m_makeContent;
    QPointer<QWidget> m_content;
    bool m_trayMode = false;
    // Kept while the panel is open: the panel grows and shrinks with its content (signing in adds
    // rows) and is placed again each time.
    QRect m_anchor;
    QElapsedTimer m_sinceAutomaticHide;
    // A deactivation counts only once the panel shown has had the focus: the one a hidden panel or
    // window caused may arrive after the panel was shown again, and would close it at once.
    bool m_activeSinceShown = false;
};

#pragma once

#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "ui/MenuBarPresenter.h"
#include "ui/Ticking.h"

#include <QMenu>
#include <QStringList>

#include <functional>
#include <memory>

// A tick source driven by the test.
class FakeTicker : public Ticking {
    Q_OBJECT
public:
    void start(std::chrono::milliseconds value) override {
        interval = value;
        active = true;
    }
    void stop() override { active = false; }
    bool isActive() const override { return active; }
    void fire() { Q_EMIT ticked(); }

    std::chrono::milliseconds interval{0};
    bool active = false;
};

// The first widget of the kind shown in `root` whose text starts with `text`.
template <typename Widget>
Widget* shown(const QWidget& root, const QString& text) {
    for (Widget* candidate : root.findChildren<Widget*>()) {
        if (candidate->text().startsWith(text) && candidate->isVisibleTo(&root)) {
            return candidate;
        }
    }
    return nullptr;
}

// A shown window as the user reads it, top to bottom and left to right: every visible text and
// button title (a disabled one in brackets), each checked to be drawn inside `root`. A widget left
// out of its layout sits in the top-left corner, out of its order.
QStringList drawnTexts(const QWidget& root);
// The tray menu as a host lists it: disabled lines in brackets, separators as "-".
QStringList menuTexts(const QMenu& menu);

// One AppState over fakes, with a presenter on virtual time: `now` moves only when a test moves
// it. Scenarios bring the state to where a test needs it through the application's own
// operations.
struct PanelFixture {
    PanelFixture();
    ~PanelFixture();

    // Makes the tickers, kept in `tickers`: the presenter's first is the "Last sync" timeline,
    // its second the countdown; a tray menu's comes next.
    std::function<std::unique_ptr<Ticking>()> ticker();
    FakeTicker& lastSyncTicker() const { return *tickers.at(0); }
    FakeTicker& countdownTicker() const { return *tickers.at(1); }

    void signIn(const QString& key = QStringLiteral("vk_stored"));
    void reportStatus(const std::function<void(TrackerStatus&)>& edit);
    // Starts a browser sign-in that waits for approval with its code shown.
    void beginSignInWithCode(qint64 expiresInSeconds = 900);
    // Starts a browser sign-in that fails at once with `message`.
    void failSignIn(const QString& message);

    AppHarness harness;
    std::unique_ptr<AppState> state;
    QDateTime now = QDateTime(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC);
    QList<FakeTicker*> tickers;
    QStringList openedWindows;
    std::unique_ptr<MenuBarPresenter> presenter;
};

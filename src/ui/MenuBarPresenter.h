#pragma once

#include "app/TrackerHealth.h"
#include "ui/SyncTimeText.h"
#include "ui/Ticking.h"

#include <QDateTime>
#include <QLocale>
#include <QObject>
#include <QTimeZone>

#include <functional>
#include <memory>
#include <optional>

class AppState;
class TrackerSupervising;

// What the tray panel shows and what its controls do, without widgets: the widget renders these
// values and forwards clicks. Everything is read from the AppState and the supervisor; nothing is
// kept except the last evaluation of the "Last sync" texts, which age on their own timeline.
class MenuBarPresenter : public QObject {
    Q_OBJECT
public:
    enum class PrimaryGroup { authorizing, signedIn, signIn };

    using Clock = std::function<QDateTime()>;
    using TickerFactory = std::function<std::unique_ptr<Ticking>()>;
    // Opens (or raises) the window with the given identity, such as "diagnostics".
    using WindowOpener = std::function<void(const QString& identifier)>;

    static constexpr std::chrono::seconds lastSyncInterval{5};
    static constexpr std::chrono::seconds countdownInterval{1};

    MenuBarPresenter(AppState& appState, TrackerSupervising& supervisor, Clock clock,
                     const TickerFactory& makeTicker, WindowOpener openWindow,
                     QObject* parent = nullptr);
    ~MenuBarPresenter() override;

    // Tests pin these; the default follows the user's settings.
    void setLocale(const QLocale& locale, const QTimeZone& timeZone);

    // Header.
    TrackerHealth::Kind healthKind() const;
    QString headerSymbol() const;
    QString headerTitle() const;

    // Details, each present only under its condition.
    std::optional<QString> healthMessage() const;
    std::optional<QString> confirmationCode() const;
    std::optional<QString> expiryCountdown() const;
    std::optional<QString> authorizationMessage() const;
    // None shows as "Not synced yet".
    const std::optional<SyncTimeText::Texts>& lastSync() const { return m_lastSync; }
    std::optional<QString> todayValue() const;
    std::optional<QString> migrationSummary() const;
    std::optional<QString> presentedError() const;

    // The one primary action group.
    PrimaryGroup primaryGroup() const;
    bool showsRetryTracker() const;
    // "Sign In" or "Sign In Again".
    QString signInTitle() const;

    // The actions list.
    bool showsSignOut() const;

    // The timers run only while a view shows the panel.
    void setShown(bool shown);
    bool isShown() const { return m_shown; }

    void openApprovalPage();
    void cancelSignIn();
    void signIn();
    void openDashboard();
    void retryTracker();
    void openSettings();
    void openDiagnostics();
    void signOut();
    void quit();

Q_SIGNALS:
    // Any value apart from the timed texts may have changed.
    void changed();
    void lastSyncChanged();
    void countdownChanged();

private:
    void onStateChanged();
    void evaluateLastSync(const QDateTime& now);
    void updateTickers();

    AppState& m_appState;
    TrackerSupervising& m_supervisor;
    Clock m_clock;
    WindowOpener m_openWindow;
    std::unique_ptr<Ticking> m_lastSyncTicker;
    std::unique_ptr<Ticking> m_countdownTicker;
    QLocale m_locale;
    QTimeZone m_timeZone;
    std::optional<SyncTimeText::Texts> m_lastSync;
    bool m_shown = false;
};

#pragma once

#include <QWidget>

class MenuBarPresenter;
class MenuRowButton;
class QLabel;
class QPushButton;
class QVBoxLayout;

// The panel's content: a fixed-width column rendering the presenter and forwarding clicks.
class MenuBarView : public QWidget {
    Q_OBJECT
public:
    static constexpr int panelWidth = 330;

    explicit MenuBarView(MenuBarPresenter& presenter, QWidget* parent = nullptr);

    MenuBarPresenter& presenter() const { return m_presenter; }

Q_SIGNALS:
    // Settings… or Diagnostics… opened one of the application's windows.
    void windowOpened();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void render();
    void renderLastSync();
    void renderCountdown();
    void renderTints();
    QWidget* detailRow(const QString& title, QWidget* value, bool captionTitle = true);

    MenuBarPresenter& m_presenter;

    QLabel* m_headerIcon;
    QLabel* m_headerTitle;

    QLabel* m_healthMessage;
    QWidget* m_codeRow;
    QLabel* m_code;
    QWidget* m_expiryRow;
    QLabel* m_expiry;
    QLabel* m_authorizationMessage;
    QLabel* m_lastSyncAbsolute;
    QLabel* m_lastSyncRelative;
    QWidget* m_todayRow;
    QLabel* m_today;
    QWidget* m_migrationRow;
    QLabel* m_migrationIcon;
    QLabel* m_migration;
    QLabel* m_error;

    QPushButton* m_openApprovalPage;
    QPushButton* m_cancelSignIn;
    QPushButton* m_openDashboard;
    QPushButton* m_retryTracker;
    QPushButton* m_signIn;
    QLabel* m_signInCaption;

    MenuRowButton* m_settings;
    MenuRowButton* m_diagnostics;
    MenuRowButton* m_signOut;
    MenuRowButton* m_quit;
};

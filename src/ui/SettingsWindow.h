#pragma once

#include "ui/SettingsPresenter.h"

#include <QDialog>

#include <memory>

class AppState;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;
class QWidget;

// The Settings window: sign-in, the connection's advanced settings, launch at login, the
// service's pages and "Save Changes". A dialog, so that Return presses the default button and
// Escape closes it. It renders its presenter and forwards edits and clicks to it.
class SettingsWindow : public QDialog {
    Q_OBJECT
public:
    // With a presenter of its own.
    explicit SettingsWindow(AppState& state, QWidget* parent = nullptr);
    // Rendering a presenter that outlives it.
    explicit SettingsWindow(SettingsPresenter& presenter, QWidget* parent = nullptr);

    SettingsPresenter& presenter() { return m_presenter; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    SettingsWindow(std::unique_ptr<SettingsPresenter>&& ownPresenter, QWidget* parent);
    SettingsWindow(std::unique_ptr<SettingsPresenter>&& ownPresenter, SettingsPresenter& presenter,
                   QWidget* parent);
    QWidget* makeConnectionSection();
    QWidget* makeStartupSection();
    QWidget* makeActionSection();
    void renderState();
    void renderFields();
    void renderFeedback();
    void clearInitialFocus();

    std::unique_ptr<SettingsPresenter> m_ownPresenter;
    SettingsPresenter& m_presenter;
    QLabel* m_description = nullptr;
    QPushButton* m_signInButton = nullptr;
    QToolButton* m_advancedToggle = nullptr;
    QWidget* m_advancedContent = nullptr;
    QLabel* m_apiKeyLabel = nullptr;
    QLineEdit* m_serverURLField = nullptr;
    QLineEdit* m_apiKeyField = nullptr;
    QCheckBox* m_launchAtLoginSwitch = nullptr;
    QPushButton* m_saveButton = nullptr;
    QLabel* m_feedback = nullptr;
    bool m_didClearInitialFocus = false;
};

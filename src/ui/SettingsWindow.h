#pragma once

#include "ui/SettingsPresenter.h"

#include <QDialog>

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
    // Renders a presenter that outlives it, so that what the user typed survives the window.
    explicit SettingsWindow(SettingsPresenter& presenter, QWidget* parent = nullptr);

    SettingsPresenter& presenter() { return m_presenter; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* makeConnectionSection();
    QWidget* makeStartupSection();
    QWidget* makeActionSection();
    void renderState();
    void renderFields();
    void renderFeedback();
    void clearInitialFocus();

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

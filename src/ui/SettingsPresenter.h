#pragma once

#include <QCoroTask>
#include <QObject>
#include <QString>

#include <optional>

class AppState;

// What the Settings window shows and what its controls do, without widgets. It holds the form's
// own edits (URL, replacement key, switch, feedback); nothing takes effect before save(). It may
// outlive its window, so that a typed key survives closing and reopening it.
class SettingsPresenter : public QObject {
    Q_OBJECT
public:
    explicit SettingsPresenter(AppState& state, QObject* parent = nullptr);

    // Texts and conditions that follow the application state (signal: stateChanged).
    QString description() const;
    bool isSignInButtonVisible() const;
    bool isSignInButtonEnabled() const;
    QString signInButtonTitle() const;
    QString apiKeyFieldTitle() const;

    // The form's edits (signal: fieldsChanged when the presenter itself changes them).
    const QString& serverURL() const { return m_serverURL; }
    const QString& replacementAPIKey() const { return m_replacementAPIKey; }
    bool launchAtLogin() const { return m_launchAtLogin; }
    void setServerURL(const QString& text) { m_serverURL = text; }
    void setReplacementAPIKey(const QString& text) { m_replacementAPIKey = text; }
    void setLaunchAtLogin(bool enabled) { m_launchAtLogin = enabled; }

    // Whether "Advanced connection settings" is open; it stays as the user left it.
    bool isAdvancedExpanded() const { return m_advancedExpanded; }
    void setAdvancedExpanded(bool expanded) { m_advancedExpanded = expanded; }

    // The outcome of the last save (signal: feedbackChanged).
    const std::optional<QString>& feedback() const { return m_feedback; }
    bool isFeedbackSuccess() const;

    // Each time the window is shown: the URL and the switch come back from the application state;
    // a typed key and the feedback stay.
    void appear();

    void signIn();
    void openPrivacy();
    void openSupport();
    // Hands the three edits, exactly as typed, to the application state. A failure keeps every
    // edit and shows the error's own words. The outcome arrives once the secret store has
    // answered.
    void save();

Q_SIGNALS:
    void stateChanged();
    void fieldsChanged();
    void feedbackChanged();

private:
    QCoro::Task<void> saveEdits();

    AppState& m_state;
    QString m_serverURL;
    QString m_replacementAPIKey;
    bool m_launchAtLogin = true;
    bool m_advancedExpanded = false;
    std::optional<QString> m_feedback;
};

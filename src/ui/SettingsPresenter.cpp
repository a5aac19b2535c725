#include "ui/SettingsPresenter.h"

#include "app/AppState.h"
#include "core/VantrelError.h"

#include <QPointer>

#include <exception>

namespace {
const QString savedMessage = QStringLiteral("Saved. The tracker is using the updated settings.");
}

SettingsPresenter::SettingsPresenter(AppState& state, QObject* parent)
    : QObject(parent)
    , m_state(state) {
    for (auto changed : {&AppState::hasCredentialChanged, &AppState::healthChanged,
                         &AppState::isAuthorizingDeviceChanged}) {
        connect(&m_state, changed, this, &SettingsPresenter::stateChanged);
    }
}

QString SettingsPresenter::description() const {
    return m_state.hasCredential()
               ? QStringLiteral(
                     "This Mac is authorized. Its credential is stored only in Keychain.")
               : QStringLiteral("Sign in through the browser to connect this Mac without copying "
                                "an API key.");
}

bool SettingsPresenter::isSignInButtonVisible() const {
    return !m_state.hasCredential() || m_state.isCredentialRejected();
}

bool SettingsPresenter::isSignInButtonEnabled() const {
    return !m_state.isAuthorizingDevice();
}

QString SettingsPresenter::signInButtonTitle() const {
    return m_state.isAuthorizingDevice() ? QStringLiteral("Signing In\u2026")
                                         : QStringLiteral("Sign In in Browser");
}

QString SettingsPresenter::apiKeyFieldTitle() const {
    return m_state.hasCredential() ? QStringLiteral("Replace API key") : QStringLiteral("API key");
}

bool SettingsPresenter::isFeedbackSuccess() const {
    return m_feedback && m_feedback->startsWith(QStringLiteral("Saved"));
}

void SettingsPresenter::appear() {
    m_serverURL = m_state.serverURL();
    m_launchAtLogin = m_state.launchAtLogin();
    Q_EMIT fieldsChanged();
}

void SettingsPresenter::signIn() {
    m_state.beginDeviceAuthorization();
}

void SettingsPresenter::openPrivacy() {
    m_state.openWebPage(QStringLiteral("/privacy/"));
}

void SettingsPresenter::openSupport() {
    m_state.openWebPage(QStringLiteral("/"));
}

void SettingsPresenter::save() {
    saveEdits();
}

QCoro::Task<void> SettingsPresenter::saveEdits() {
    const QPointer<SettingsPresenter> self(this);
    std::exception_ptr failure;
    try {
        co_await m_state.saveSettings(m_serverURL, m_replacementAPIKey, m_launchAtLogin);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        m_feedback = VantrelError::describe(failure);
        Q_EMIT feedbackChanged();
        co_return;
    }
    m_replacementAPIKey.clear();
    m_feedback = savedMessage;
    Q_EMIT fieldsChanged();
    Q_EMIT feedbackChanged();
}

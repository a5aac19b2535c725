#include "ui/TrayMenuPresenter.h"

#include <algorithm>
#include <functional>

namespace {

using Entry = TrayMenuPresenter::Entry;
using Kind = TrayMenuPresenter::Kind;

struct Action {
    const char* key;
    void (MenuBarPresenter::*perform)();
};

constexpr Action actions[] = {
    {"open-approval-page", &MenuBarPresenter::openApprovalPage},
    {"cancel-sign-in", &MenuBarPresenter::cancelSignIn},
    {"open-dashboard", &MenuBarPresenter::openDashboard},
    {"retry-tracker", &MenuBarPresenter::retryTracker},
    {"sign-in", &MenuBarPresenter::signIn},
    {"settings", &MenuBarPresenter::openSettings},
    {"diagnostics", &MenuBarPresenter::openDiagnostics},
    {"sign-out", &MenuBarPresenter::signOut},
    {"quit", &MenuBarPresenter::quit},
};

Entry action(const char* key, const QString& label) {
    return {QLatin1String(key), Kind::action, label};
}

Entry text(const char* key, const QString& label) {
    return {QLatin1String(key), Kind::text, label};
}

Entry separator(const char* key) {
    return {QLatin1String(key), Kind::separator, {}};
}

} // namespace

TrayMenuPresenter::TrayMenuPresenter(MenuBarPresenter& presenter,
                                     const MenuBarPresenter::TickerFactory& makeTicker,
                                     QObject* parent)
    : QObject(parent)
    , m_presenter(presenter)
    , m_countdownTicker(makeTicker()) {
    connect(&m_presenter, &MenuBarPresenter::changed, this, &TrayMenuPresenter::refresh);
    connect(m_countdownTicker.get(), &Ticking::ticked, this, &TrayMenuPresenter::refresh);
    refresh();
}

TrayMenuPresenter::~TrayMenuPresenter() = default;

void TrayMenuPresenter::trigger(const QString& key) {
    const bool offered = std::any_of(m_entries.cbegin(), m_entries.cend(), [&key](const Entry& e) {
        return e.kind == Kind::action && e.key == key;
    });
    if (!offered) {
        return;
    }
    for (const Action& candidate : actions) {
        if (key == QLatin1String(candidate.key)) {
            std::invoke(candidate.perform, m_presenter);
            return;
        }
    }
}

void TrayMenuPresenter::refresh() {
    // A host may keep the menu open for as long as the user reads it: the countdown is kept
    // current whenever there is one, not only while the panel is shown.
    if (m_presenter.expiryCountdown()) {
        if (!m_countdownTicker->isActive()) {
            m_countdownTicker->start(MenuBarPresenter::countdownInterval);
        }
    } else {
        m_countdownTicker->stop();
    }
    QList<Entry> entries = evaluate();
    if (entries != m_entries) {
        m_entries = std::move(entries);
        Q_EMIT changed();
    }
}

QList<Entry> TrayMenuPresenter::evaluate() const {
    QList<Entry> result{text("status", m_presenter.headerTitle())};
    if (const auto message = m_presenter.healthMessage()) {
        result.append(text("status-message", *message));
    }
    // Where the menu is the way in (GNOME), an action that failed would otherwise fail silently.
    if (const auto error = m_presenter.presentedError()) {
        result.append(text("error", *error));
    }
    if (const auto code = m_presenter.confirmationCode()) {
        result.append(text("code", QStringLiteral("Confirmation code: ") + *code));
        if (const auto countdown = m_presenter.expiryCountdown()) {
            result.append(text("expiry", QStringLiteral("Expires in ") + *countdown));
        }
    }
    result.append(separator("separator-primary"));
    switch (m_presenter.primaryGroup()) {
    case MenuBarPresenter::PrimaryGroup::authorizing:
        result.append(action("open-approval-page", QStringLiteral("Open Approval Page")));
        result.append(action("cancel-sign-in", QStringLiteral("Cancel Sign In")));
        break;
    case MenuBarPresenter::PrimaryGroup::signedIn:
        result.append(action("open-dashboard", QStringLiteral("Open Dashboard")));
        if (m_presenter.showsRetryTracker()) {
            result.append(action("retry-tracker", QStringLiteral("Retry Tracker")));
        }
        break;
    case MenuBarPresenter::PrimaryGroup::signIn:
        result.append(action("sign-in", m_presenter.signInTitle()));
        break;
    }
    result.append(separator("separator-actions"));
    result.append(action("settings", QStringLiteral("Settings…")));
    result.append(action("diagnostics", QStringLiteral("Diagnostics…")));
    if (m_presenter.showsSignOut()) {
        result.append(action("sign-out", QStringLiteral("Sign Out")));
    }
    result.append(separator("separator-quit"));
    result.append(action("quit", QStringLiteral("Quit Vantrel")));
    return result;
}

#include "ui/ActionRequiredAnnouncer.h"

#include "app/AppState.h"
#include "core/SleepScheduling.h"
#include "system/SessionResumeWatching.h"
#include "tracker/TrackerSupervising.h"

#include <QPointer>

ActionRequiredAnnouncer::ActionRequiredAnnouncer(AppState& appState, TrackerSupervising& supervisor,
                                                 DesktopNotifying& notifier,
                                                 SleepScheduling& sleeper,
                                                 SessionResumeWatching& session, QObject* parent)
    : QObject(parent)
    , m_appState(appState)
    , m_supervisor(supervisor)
    , m_notifier(notifier)
    , m_sleeper(sleeper) {
    connect(&appState, &AppState::healthChanged, this, &ActionRequiredAnnouncer::evaluate);
    connect(&session, &SessionResumeWatching::resumed, this,
            &ActionRequiredAnnouncer::beginQuietTime);
    connect(&notifier, &DesktopNotifying::actionInvoked, this,
            &ActionRequiredAnnouncer::performAction);
    beginQuietTime();
}

ActionRequiredAnnouncer::~ActionRequiredAnnouncer() {
    if (m_quietTime) {
        m_quietTime->cancel();
    }
}

void ActionRequiredAnnouncer::beginQuietTime() {
    if (m_quietTime) {
        m_quietTime->cancel();
    }
    m_quietTime.emplace();
    endQuietTimeAfterwards(m_quietTime->token());
}

QCoro::Task<void> ActionRequiredAnnouncer::endQuietTimeAfterwards(CancellationToken token) {
    QPointer self(this);
    co_await m_sleeper.sleep(quietSeconds, token);
    if (!self || token.isCancelled()) {
        co_return;
    }
    self->m_quietTime.reset();
    self->evaluate();
}

std::optional<DesktopNotifying::Notice> ActionRequiredAnnouncer::wantedNotice() const {
    const TrackerHealth health = m_appState.health();
    if (health.kind() != TrackerHealth::Kind::actionRequired) {
        return std::nullopt;
    }
    // The panel offers a new sign-in for a rejected key, also when the helper is locked too.
    const QString action = m_appState.isCredentialRejected() ? QStringLiteral("Sign In Again")
                                                             : QStringLiteral("Retry Tracker");
    return DesktopNotifying::Notice{health.statusLabel(), health.message(), action};
}

void ActionRequiredAnnouncer::evaluate() {
    const std::optional<DesktopNotifying::Notice> wanted = wantedNotice();
    if (!wanted) {
        if (m_shown) {
            m_shown.reset();
            m_notifier.withdraw();
        }
        return;
    }
    // A notice on screen from before the wake still holds and stays; anything new waits.
    if (m_quietTime || wanted == m_shown) {
        return;
    }
    m_shown = wanted;
    m_notifier.show(*wanted);
}

void ActionRequiredAnnouncer::performAction() {
    const std::optional<DesktopNotifying::Notice> wanted = wantedNotice();
    // A button pressed on a notice whose condition has just ended does nothing.
    if (!wanted || wanted != m_shown) {
        return;
    }
    if (m_appState.isCredentialRejected()) {
        m_appState.beginDeviceAuthorization();
    } else if (const auto configuration = m_supervisor.launchConfiguration()) {
        m_supervisor.start(*configuration);
    }
}

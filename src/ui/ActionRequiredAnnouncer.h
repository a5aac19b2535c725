#pragma once

#include "core/TaskHandle.h"
#include "system/DesktopNotifying.h"

#include <QCoroTask>
#include <QObject>

#include <optional>

class AppState;
class SessionResumeWatching;
class SleepScheduling;
class TrackerSupervising;

// Tells the desktop when tracking has stopped and needs the user: a notice while the health is
// "action required", with the button the panel offers for it, withdrawn when the condition ends.
// Routine states say nothing. The first moments after start and after a wake are a quiet time,
// when a helper may still be finding its feet: what begins then is announced only when the quiet
// time ends, and only if it still holds.
class ActionRequiredAnnouncer : public QObject {
    Q_OBJECT
public:
    static constexpr double quietSeconds = 30;

    // Everything must outlive the announcer. The quiet time of the start begins here.
    ActionRequiredAnnouncer(AppState& appState, TrackerSupervising& supervisor,
                            DesktopNotifying& notifier, SleepScheduling& sleeper,
                            SessionResumeWatching& session, QObject* parent = nullptr);
    ~ActionRequiredAnnouncer() override;

private:
    void beginQuietTime();
    QCoro::Task<void> endQuietTimeAfterwards(CancellationToken token);
    void evaluate();
    void performAction();
    // The notice for the current health, if it calls for one.
    std::optional<DesktopNotifying::Notice> wantedNotice() const;

    AppState& m_appState;
    TrackerSupervising& m_supervisor;
    DesktopNotifying& m_notifier;
    SleepScheduling& m_sleeper;
    std::optional<TaskHandle> m_quietTime;
    std::optional<DesktopNotifying::Notice> m_shown;
};

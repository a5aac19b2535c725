#include "ui/ActionRequiredAnnouncer.h"

#include "PanelTestSupport.h"
#include "system/SessionResumeWatching.h"

#include <gtest/gtest.h>

namespace {

class RecordingNotifier : public DesktopNotifying {
public:
    void show(const Notice& notice) override {
        log.append(QStringLiteral("show %1 / %2 / %3")
                       .arg(notice.summary, notice.body, notice.actionLabel));
    }
    void withdraw() override { log.append(QStringLiteral("withdraw")); }

    QStringList log;
};

const QString crash = "show Action required / Tracker stopped after repeated crashes. / ";
const QString rejected = "show Action required / The API key was rejected. / ";
const QString retry = "Retry Tracker";
const QString signInAgain = "Sign In Again";

// Steps, played on virtual time after a sign-in: "quiet" ends the pending quiet time, "wake"
// resumes from sleep, "press" is the notice's button; the rest change the health.
struct Row {
    const char* name;
    QStringList steps;
    QStringList expected;
};

class ActionRequiredNotice : public ::testing::TestWithParam<Row> {};

TEST_P(ActionRequiredNotice, followsTheHealthAsTheTableSays) {
    // Outlives the fixture, which runs the event loop once more at its end: a cancelled quiet
    // time returns from its sleep only then.
    FakeSleeper quietTime;
    quietTime.hold = true;
    PanelFixture fixture;
    fixture.signIn();
    FakeSupervisor& supervisor = fixture.harness.supervisor;
    SessionResumeWatching session;
    RecordingNotifier notifier;
    ActionRequiredAnnouncer announcer(*fixture.state, supervisor, notifier, quietTime, session);

    const qsizetype startsBefore = supervisor.starts.size();
    for (const QString& step : GetParam().steps) {
        if (step == QLatin1String("quiet")) {
            quietTime.releaseOne();
            notifier.log.append(QStringLiteral("quiet ends"));
        } else if (step == QLatin1String("wake")) {
            Q_EMIT session.resumed();
        } else if (step == QLatin1String("press")) {
            Q_EMIT notifier.actionInvoked();
            AsyncTest::spin();
            if (supervisor.starts.size() > startsBefore) {
                notifier.log.append(QStringLiteral("restart"));
            }
            if (fixture.state->isAuthorizingDevice()) {
                notifier.log.append(QStringLiteral("sign in"));
            }
        } else if (step == QLatin1String("lock") || step == QLatin1String("unlock")) {
            supervisor.setCrashLocked(step == QLatin1String("lock"));
        } else {
            fixture.reportStatus([&](TrackerStatus& status) {
                status.lastUploadErrorKind =
                    step == QLatin1String("fine") ? std::nullopt : std::optional(step);
            });
        }
        AsyncTest::spin();
    }
    EXPECT_EQ(notifier.log, GetParam().expected);
    EXPECT_EQ(quietTime.requested.value(0), 30);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ActionRequiredNotice,
    ::testing::Values(
        Row{"routineStatesSayNothing", {"quiet", "network", "fine"}, {"quiet ends"}},
        Row{"lockAfterTheQuietTimeIsAnnouncedAtOnce",
            {"quiet", "lock"},
            {"quiet ends", crash + retry}},
        Row{"lockInTheStartsQuietTimeWaitsForItsEnd",
            {"lock", "quiet"},
            {"quiet ends", crash + retry}},
        Row{"lockOverBeforeTheQuietTimeEndsIsNeverAnnounced",
            {"lock", "unlock", "quiet"},
            {"quiet ends"}},
        Row{"lockAfterAWakeWaitsForTheNewQuietTime",
            {"quiet", "wake", "lock", "quiet"},
            {"quiet ends", "quiet ends", crash + retry}},
        Row{"aWakeLeavesAStandingNoticeAlone",
            {"quiet", "lock", "wake", "quiet"},
            {"quiet ends", crash + retry, "quiet ends"}},
        Row{"anEndInTheQuietTimeWithdrawsAtOnce",
            {"quiet", "lock", "wake", "unlock"},
            {"quiet ends", crash + retry, "withdraw"}},
        Row{"retryRestartsTheHelperAndTheEndWithdraws",
            {"quiet", "lock", "press", "unlock"},
            {"quiet ends", crash + retry, "restart", "withdraw"}},
        Row{"aSecondLockIsAnnouncedAgain",
            {"quiet", "lock", "unlock", "lock"},
            {"quiet ends", crash + retry, "withdraw", crash + retry}},
        Row{"aRejectedKeyOffersANewSignIn",
            {"quiet", "unauthorized", "press"},
            // A sign-in under way is not a condition the user must be told about.
            {"quiet ends", rejected + signInAgain, "withdraw", "sign in"}},
        // The panel too offers the sign-in once the key is rejected, whatever else is wrong.
        Row{"aNewConditionReplacesTheNotice",
            {"quiet", "unauthorized", "lock"},
            {"quiet ends", rejected + signInAgain, crash + signInAgain}},
        Row{"aButtonPressedTooLateDoesNothing",
            {"quiet", "lock", "unlock", "press"},
            {"quiet ends", crash + retry, "withdraw"}}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace

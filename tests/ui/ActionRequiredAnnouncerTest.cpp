#include "ui/ActionRequiredAnnouncer.h"

#include "PanelTestSupport.h"
#include "support/TableRows.h"
#include "system/SessionResumeWatching.h"

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

class RecordingNotifier : public DesktopNotifying {
public:
    void show(const Notice& notice) override {
        log.append(
            QString("show %1 / %2 / %3").arg(notice.summary, notice.body, notice.actionLabel));
    }
    void withdraw() override { log.append("withdraw"); }

    QStringList log;
};

const QString crash = "show Action required / Tracker stopped after repeated crashes. / ";
const QString locked = crash + "Retry Tracker";
const QString rejected = "show Action required / The API key was rejected. / Sign In Again";

// Steps, played on virtual time after a sign-in: "quiet" ends the pending quiet time (and is
// logged), "wake" resumes from sleep, "press" is the notice's button; the rest change the health.
struct Row {
    const char* name;
    const char* steps;
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

    for (const QString& step : QString(GetParam().steps).split(' ')) {
        if (step == "quiet") {
            quietTime.releaseOne();
            notifier.log.append("quiet");
        } else if (step == "wake") {
            Q_EMIT session.resumed();
        } else if (step == "press") {
            const qsizetype startsBefore = supervisor.starts.size();
            Q_EMIT notifier.actionInvoked();
            AsyncTest::spin();
            if (supervisor.starts.size() > startsBefore) {
                notifier.log.append("restart");
            }
            if (fixture.state->isAuthorizingDevice()) {
                notifier.log.append("sign in");
            }
        } else if (step == "lock" || step == "unlock") {
            supervisor.setCrashLocked(step == "lock");
        } else {
            fixture.reportStatus([&](TrackerStatus& status) {
                status.lastUploadErrorKind = step == "fine" ? std::nullopt : std::optional(step);
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
        // Routine states say nothing; a lock over before the quiet time ends is never announced,
        // nor is a press on a notice whose condition has ended answered.
        Row{"aLockIsAnnouncedAtOnceAfterTheQuietTimeAndAgainAfterItEnded",
            "lock unlock quiet network fine lock unlock press lock",
            {"quiet", locked, "withdraw", locked}},
        Row{"aLockInTheStartsQuietTimeWaitsForItsEndAndAWakeLeavesItAlone",
            "lock quiet wake quiet press unlock",
            {"quiet", locked, "quiet", "restart", "withdraw"}},
        Row{"aLockAfterAWakeWaitsForTheNewQuietTimeButAnEndIsToldAtOnce",
            "quiet wake lock quiet wake unlock",
            {"quiet", "quiet", locked, "withdraw"}},
        // A sign-in under way is not a condition the user must be told about.
        Row{"aRejectedKeyOffersANewSignIn",
            "quiet unauthorized press",
            {"quiet", rejected, "withdraw", "sign in"}},
        // The panel too offers the sign-in once the key is rejected, whatever else is wrong.
        Row{"aNewConditionReplacesTheNotice",
            "quiet unauthorized lock",
            {"quiet", rejected, crash + "Sign In Again"}}),
    rowName);

} // namespace

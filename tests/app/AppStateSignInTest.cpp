#include "api/DeviceAuthorizationClientError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "support/TableRows.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using AsyncTest::waitUntil;
using Poll = DeviceAuthorizationPollResult;
using PollOutcome = FakeDeviceAuthorizer::Outcome<Poll>;
using StartOutcome = FakeDeviceAuthorizer::Outcome<DeviceAuthorizationSession>;
using Error = DeviceAuthorizationClientError;
using Pairs = QList<std::pair<QString, QString>>;

namespace {

const QString approve = "Approve this Mac in your browser.";
const QString waitingForApproval = "Waiting for browser approval…";
const QString waitingForConnection = "Waiting for a connection. Your code is still active.";
const QString expiredText = "Device sign in expired. Start sign in again to get a new code.";
const QString identityText = "Vantrel could not create a stable identity for this Mac.";
const QString invalidText = "Vantrel returned an invalid device authorization response.";
const QString helperText =
    "Tracker helper is missing at /opt/vantrel/libexec/vantrel/vantrel-tracker.";
const QString offlineText = "Vantrel could not be reached. Check your connection and try again.";
const QString deniedText = "Device access was denied. Start sign in again when you are ready.";
const QString claimedText = "This sign-in request was already used. Start sign in again.";
const QString rejectedText = "Vantrel rejected the device authorization request (HTTP 500).";
const QString httpsText = "Enter a valid HTTPS Vantrel API URL.";
const QString unverifiedText = "The API key could not be verified after saving.";
const QString saveError = "Keychain operation failed with status -25308.";
const QString loadError = "Keychain operation failed with status -25293.";
const QString selfHosted = "https://self-hosted.example/api/v1";
const QString saved; // the outcome of a save that throws nothing
const QDateTime t0(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC); // the harness clock
constexpr double infinity = std::numeric_limits<double>::infinity();

std::exception_ptr error(const Error& failure) {
    return std::make_exception_ptr(failure);
}
PollOutcome offline() {
    return error(Error::networkUnavailable());
}
const Poll approved = Poll::authorized("vk_1");

DeviceAuthorizationSession session(double interval = 5, qint64 expiresIn = 900,
                                   const QString& code = "WDJB-MJHT") {
    DeviceAuthorizationSession result;
    result.userCode = code;
    result.verificationURLComplete = QUrl("https://vantrel.app/device?code=" + code);
    result.expiresAt = t0.addSecs(expiresIn);
    result.interval = interval;
    return result;
}

// Ways to break one collaborator before an attempt or a save.
constexpr auto nothing = [](AppHarness&) {};
constexpr auto failSave = [](AppHarness& h) { h.credentials.failSave = -25308; };
constexpr auto failLoad = [](AppHarness& h) { h.credentials.failLoad = -25293; };
constexpr auto readsBackOther = [](AppHarness& h) { h.credentials.loadOverride = "vk_other"; };
constexpr auto noStatus = [](AppHarness& h) { h.supervisor.statusOnRefresh.reset(); };
constexpr auto plainHTTP = [](AppHarness& h) { h.defaults.values["serverURL"] = "http://x.org"; };
constexpr auto noHelper = [](AppHarness& h) { h.installation.helper.reset(); };
constexpr auto configFails = [](AppHarness& h) { h.configFile.failure = "Permission denied"; };
constexpr auto forgetKey = [](AppHarness& h) { h.credentials.stored.reset(); };
constexpr auto loginFails = [](AppHarness& h) { h.loginItems.failure = "Not permitted"; };
const QString preferencesError = "Could not save the preferences in /home/tester/Vantrel.conf.";
constexpr auto preferencesFail = [](AppHarness& h) { h.defaults.commitFailure = preferencesError; };
template <const char* deviceId>
void useDeviceId(AppHarness& harness) {
    harness.supervisor.statusOnRefresh->deviceId = deviceId;
}
constexpr char notAUUID[] = "anna-laptop";
constexpr char inBraces[] = "{6F9619FF-8B86-D011-B42D-00C04FC964FF}";
constexpr char lowerCase[] = "6f9619ff-8b86-d011-b42d-00c04fc964ff";

// Drives one AppState through browser sign-ins on virtual time: polling sleeps end at once (or
// when released, with `hold`), and the harness clock advances by what they slept.
class SignInTest : public ::testing::Test {
protected:
    SignInTest() { h.supervisor.statusOnRefresh = sampleTrackerStatus(); }
    ~SignInTest() override {
        state.reset(); // ends an unfinished attempt while the fakes it waits on still exist
        AsyncTest::spin(std::chrono::milliseconds(20));
    }

    AppState& app() { return state ? *state : *(state = h.make()); }

    void script(const StartOutcome& start, std::vector<PollOutcome> polls = {}) {
        h.authorizer.startOutcomes = {start};
        h.authorizer.pollOutcomes.assign(polls.begin(), polls.end());
    }

    // With held sleeps: starts an attempt and waits until it shows its code and sleeps.
    void beginUntilFirstSleep() {
        h.taskSleeper.hold = true;
        app().beginDeviceAuthorization();
        ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 1; }));
    }

    // With held sleeps: ends the current sleep and waits for the poll's outcome to be handled.
    void pollOnce() {
        const auto polls = h.authorizer.pollURLs.size();
        h.taskSleeper.releaseOne();
        ASSERT_TRUE(waitUntil([&] {
            return h.authorizer.pollURLs.size() > polls &&
                   (h.taskSleeper.pendingCount() == 1 || !app().isAuthorizingDevice());
        }));
    }

    // The attempt is over and has left nothing behind; without `signedIn`, nobody was signed in.
    void expectEnded(bool signedIn = false) {
        EXPECT_FALSE(app().isAuthorizingDevice());
        EXPECT_EQ(app().deviceAuthorizationCode(), std::nullopt);
        EXPECT_EQ(app().deviceAuthorizationExpiresAt(), std::nullopt);
        const auto opened = h.workspace.opened.size();
        app().openDeviceAuthorizationPage();
        EXPECT_EQ(h.workspace.opened.size(), opened) << "the verification page was forgotten";
        EXPECT_EQ(app().hasCredential(), signedIn);
        EXPECT_EQ(h.supervisor.starts.size(), signedIn ? 1 : 0);
        if (!signedIn) {
            EXPECT_EQ(app().deviceAuthorizationMessage(), std::nullopt);
            EXPECT_TRUE(h.poller.starts.isEmpty());
        }
    }

    AppHarness h;
    std::unique_ptr<AppState> state;
};

// One whole attempt, run to its end: how often it polls and how it ends.
struct AttemptCase {
    const char* name;
    std::optional<QString> error; // none: the attempt signs in
    std::vector<PollOutcome> polls = {};
    StartOutcome start = session();
    void (*arrange)(AppHarness&) = nothing;
    QList<double> sleeps = {};
};

class AttemptTest : public SignInTest, public ::testing::WithParamInterface<AttemptCase> {};

TEST_P(AttemptTest, EndsAsExpected) {
    const AttemptCase& row = GetParam();
    row.arrange(h);
    script(row.start, row.polls);

    app().beginDeviceAuthorization();
    ASSERT_TRUE(waitUntil([&] { return !app().isAuthorizingDevice(); }));

    EXPECT_EQ(app().presentedError(), row.error);
    expectEnded(!row.error);
    if (!row.sleeps.isEmpty()) {
        EXPECT_EQ(h.taskSleeper.requested, row.sleeps);
    }
}

// An attempt that signs in after `polls`, sleeping `sleeps` before its polls.
AttemptCase paced(const char* name, double interval, std::vector<PollOutcome> polls,
                  QList<double> sleeps) {
    polls.push_back(approved);
    return {name, std::nullopt, polls, session(interval), nothing, sleeps};
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, AttemptTest,
    ::testing::Values(
        paced("SubSecondIntervalPollsEverySecond", 0.2, {Poll::pending(0.2)}, {1, 1}),
        paced("ZeroIntervalPollsEverySecond", 0, {Poll::pending(0), Poll::slowDown(0)}, {1, 1, 1}),
        paced("NegativeIntervalPollsEverySecond", -3, {Poll::pending(-3)}, {1, 1}),
        paced("FractionalIntervalKept", 2.5, {Poll::pending(2.5)}, {2.5, 2.5}),
        paced("PendingRaisesButNeverLowers", 0.2,
              {Poll::pending(3), Poll::pending(5), Poll::pending(2)}, {1, 3, 5, 5}),
        paced("SlowDownRaises", 2, {Poll::slowDown(10), Poll::pending(4)}, {2, 10, 10}),
        paced("SlowDownNeverLowers", 6, {Poll::slowDown(3)}, {6, 6}),
        paced("NetworkLossKeepsInterval", 4, {offline(), offline()}, {4, 4, 4}),
        AttemptCase{"HelperMissing", helperText, {}, session(), noHelper},
        AttemptCase{"NoStatus", identityText, {}, session(), noStatus},
        AttemptCase{"DeviceIdNotAUUID", identityText, {}, session(), useDeviceId<notAUUID>},
        AttemptCase{"DeviceIdInBraces", identityText, {}, session(), useDeviceId<inBraces>},
        AttemptCase{"PlainHTTPServer", httpsText, {}, session(), plainHTTP},
        AttemptCase{"StartOffline", offlineText, {}, error(Error::networkUnavailable())},
        AttemptCase{"Denied", deniedText, {Poll::pending(5), Poll::denied()}},
        AttemptCase{"Claimed", claimedText, {Poll::claimed()}},
        AttemptCase{"PollRejected", rejectedText, {error(Error::requestRejected(500))}},
        AttemptCase{"PollGarbled", invalidText, {error(Error::invalidResponse())}},
        AttemptCase{"ExpiredByService", expiredText, {Poll::expired()}},
        // The code's lifetime is kept here too: polls at 4, 8 and 12 s; the code is gone after 10.
        AttemptCase{"ExpiresWhilePending", expiredText, {Poll::pending(4)}, session(4, 10)},
        AttemptCase{"ExpiresWhileOffline", expiredText, {offline()}, session(4, 10)},
        AttemptCase{"ExpiredOnArrival", expiredText, {approved}, session(5, 0)},
        AttemptCase{"SessionIntervalNaN", invalidText, {}, session(std::nan(""))},
        AttemptCase{"PendingIntervalInfinite", invalidText, {Poll::pending(infinity)}},
        AttemptCase{"PendingIntervalBeyondAnySleep", invalidText, {Poll::pending(1e300)}},
        AttemptCase{"SessionIntervalBeyondAnySleep", invalidText, {}, session(1e19)},
        AttemptCase{"KeyWithBlanksReadsBackTrimmed", unverifiedText, {Poll::authorized(" vk_1")}},
        AttemptCase{
            "KeyReadsBackDifferently", unverifiedText, {approved}, session(), readsBackOther},
        AttemptCase{"KeyCannotBeSaved", saveError, {approved}, session(), failSave}),
    rowName);

TEST_F(SignInTest, ReplacesACancelledAttemptThenShowsTheCodeStoresTheKeyAndStartsTracking) {
    h.installation.version = "1.4.2";
    useDeviceId<lowerCase>(h);
    h.authorizer.startOutcomes = {session(5, 900, "OLD1-CODE"), session(5, 600)};
    h.authorizer.pollOutcomes = {Poll::pending(5), approved};
    beginUntilFirstSleep();
    app().cancelDeviceAuthorization();

    app().beginDeviceAuthorization();
    app().beginDeviceAuthorization(); // ignored while one runs
    EXPECT_EQ(app().deviceAuthorizationMessage(), "Preparing a secure browser sign in…");
    // The old attempt wakes from its cancelled sleep while the new one asks for its code.
    ASSERT_TRUE(waitUntil([&] {
        return app().deviceAuthorizationCode() == "WDJB-MJHT" && h.taskSleeper.pendingCount() == 1;
    }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(app().deviceAuthorizationMessage(), approve);
    EXPECT_EQ(app().deviceAuthorizationExpiresAt(), t0.addSecs(600));
    EXPECT_EQ(h.workspace.opened.last(), QUrl("https://vantrel.app/device?code=WDJB-MJHT"));
    ASSERT_EQ(h.authorizer.startCalls.size(), 2);
    EXPECT_EQ(h.authorizer.startCalls[1].deviceID, QUuid("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"));
    EXPECT_EQ(h.authorizer.startCalls[1].clientVersion, "1.4.2");
    app().beginDeviceAuthorization();
    EXPECT_EQ(h.authorizer.startCalls.size(), 2) << "the new attempt must still count as running";

    pollOnce();
    pollOnce();

    EXPECT_EQ(app().deviceAuthorizationMessage(), "Connected. Starting the tracker…");
    expectEnded(true);
    EXPECT_EQ(h.credentials.stored, "vk_1");
    EXPECT_EQ(h.supervisor.starts.first().apiKey, "vk_1");
    EXPECT_EQ(h.poller.starts, (Pairs{{AppState::defaultServerURL, "vk_1"}}));
}

TEST_F(SignInTest, NetworkLossAndRecoveryAlternateTheWaitingMessages) {
    script(session(), {Poll::slowDown(8), offline(), offline(), Poll::pending(5), offline(),
                       Poll::slowDown(8), Poll::pending(5)});
    beginUntilFirstSleep();

    for (const QString& expected :
         {approve, waitingForConnection, waitingForConnection, waitingForApproval,
          waitingForConnection, waitingForConnection, waitingForApproval}) {
        pollOnce();
        EXPECT_EQ(app().deviceAuthorizationMessage(), expected);
        EXPECT_EQ(app().deviceAuthorizationCode(), "WDJB-MJHT");
    }
    EXPECT_EQ(app().presentedError(), std::nullopt);
}

struct CancelCase {
    const char* name;
    std::optional<PollOutcome> lateAnswer; // a poll in flight when cancelled, answering afterwards
};

class CancelTest : public SignInTest, public ::testing::WithParamInterface<CancelCase> {};

TEST_P(CancelTest, EndsQuietlyAndIgnoresALateAnswer) {
    const CancelCase& row = GetParam();
    script(session(), {row.lateAnswer.value_or(approved)});
    h.authorizer.pollGate.hold = true;
    beginUntilFirstSleep();
    if (row.lateAnswer) {
        h.taskSleeper.releaseOne();
        ASSERT_TRUE(waitUntil([&] { return h.authorizer.pollGate.pendingCount() == 1; }));
    }

    app().cancelDeviceAuthorization();
    EXPECT_FALSE(app().isAuthorizingDevice()) << "at once";
    h.authorizer.pollGate.releaseOne();
    ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 0; }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.authorizer.pollURLs.size(), row.lateAnswer ? 1 : 0);
    EXPECT_EQ(app().presentedError(), std::nullopt);
    EXPECT_EQ(h.credentials.saveCount, 0);
    expectEnded();
}

INSTANTIATE_TEST_SUITE_P(DeviceSignIn, CancelTest,
                         ::testing::Values(CancelCase{"DuringTheSleep", std::nullopt},
                                           CancelCase{"ApprovalArrivesLate", approved}),
                         rowName);

// --- Saving the settings -------------------------------------------------------------------

class SaveSettingsTest : public SignInTest {
protected:
    SaveSettingsTest() { h.credentials.stored = "vk_old"; }

    // Leaves a browser sign-in waiting for its first poll.
    void beginSignIn() {
        script(session(), {Poll::pending(5)});
        beginUntilFirstSleep();
    }
    bool signInRunning() {
        return app().isAuthorizingDevice() && app().deviceAuthorizationCode() == "WDJB-MJHT";
    }
};

// The user typed a key while a browser sign-in had a poll on the wire: the typed key wins.
TEST_F(SaveSettingsTest, StoresATrimmedTypedKeyAndAddressThenRestartsAndIgnoresTheSignIn) {
    h.authorizer.pollGate.hold = true;
    beginSignIn();
    h.authorizer.pollOutcomes = {Poll::authorized("vk_from_browser")};
    h.taskSleeper.releaseOne();
    ASSERT_TRUE(waitUntil([&] { return h.authorizer.pollGate.pendingCount() == 1; }));
    qsizetype writesWhenStarted = -1;
    QObject::connect(&h.supervisor, &TrackerSupervising::helperRunningChanged,
                     [&] { writesWhenStarted = h.configFile.writes.size(); });

    EXPECT_NO_THROW(AsyncTest::run(
        app().saveSettings("https://self-hosted.example/api/v1/", "  vk_typed \n", true)));
    h.authorizer.pollGate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.credentials.stored, "vk_typed");
    expectEnded(true);
    EXPECT_EQ(h.configFile.writes, (Pairs{{"api_url", selfHosted}}));
    EXPECT_EQ(writesWhenStarted, 1) << "the configuration is written before the restart";
    EXPECT_EQ(h.supervisor.starts.first().apiKey, "vk_typed");
    EXPECT_EQ(h.poller.starts, (Pairs{{selfHosted, "vk_typed"}}));
}

// A save's steps in order: cancel the sign-in and store the key (only for a typed key), save the
// address, write the configuration, restart the tracker (or stop it without a key), ask for the
// login item. Each row stops after some of them.
struct SaveCase {
    const char* name;
    QString url;
    QString key;
    void (*arrange)(AppHarness&);
    QString outcome;
    int stepsDone;
};

class SaveTest : public SaveSettingsTest, public ::testing::WithParamInterface<SaveCase> {};

TEST_P(SaveTest, LeavesExactlyTheEarlierStepsDone) {
    const SaveCase& row = GetParam();
    const bool typedKey = !row.key.trimmed().isEmpty();
    beginSignIn();
    row.arrange(h);
    const std::optional<QString> keyBefore = h.credentials.stored;

    EXPECT_EQ(AsyncTest::errorText(app().saveSettings(row.url, row.key, false)), row.outcome);

    EXPECT_EQ(signInRunning(), !typedKey || row.stepsDone < 1);
    EXPECT_EQ(h.credentials.stored, typedKey && row.stepsDone >= 2 ? row.key : keyBefore);
    EXPECT_EQ(app().serverURL() == selfHosted, row.stepsDone >= 3);
    EXPECT_EQ(h.defaults.string("serverURL") == selfHosted, row.stepsDone >= 3);
    EXPECT_EQ(h.configFile.writes.size(), row.stepsDone >= 4 ? 1 : 0);
    EXPECT_EQ(h.supervisor.starts.size() + h.supervisor.stops.size(), row.stepsDone >= 5 ? 1 : 0);
    EXPECT_EQ(app().hasCredential(), row.stepsDone >= 5 && h.credentials.stored);
    if (!h.supervisor.starts.isEmpty()) {
        EXPECT_EQ(h.supervisor.starts.first().apiKey, h.credentials.stored);
    }
    EXPECT_EQ(h.loginItems.calls.size(), row.stepsDone >= 6 ? 1 : 0);
    // The preference only changes once the login item agreed, and then for the next launch too.
    EXPECT_EQ(app().launchAtLogin(), row.outcome != saved);
    EXPECT_EQ(h.make()->launchAtLogin(), row.outcome != saved);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SaveTest,
    ::testing::Values(
        SaveCase{"BlankKeyFieldKeepsTheKeyAndTheSignIn", " " + selfHosted + "/\n", " \n\t ",
                 nothing, saved, 6},
        SaveCase{"NoKeyAnywhereStopsTracking", selfHosted, "", forgetKey, saved, 6},
        SaveCase{"PlainHTTPIsRejectedFirst", "http://x.org/api", "vk_new", nothing, httpsText, 0},
        SaveCase{"KeyCannotBeStored", selfHosted, "vk_new", failSave, saveError, 1},
        SaveCase{"KeyReadsBackDifferently", selfHosted, "vk_new", readsBackOther, unverifiedText,
                 2},
        SaveCase{"KeyCannotBeReadBack", selfHosted, "vk_new", failLoad, loadError, 2},
        SaveCase{"PreferencesCannotBeSaved", selfHosted, "vk_new", preferencesFail,
                 preferencesError, 3},
        SaveCase{"ConfigurationCannotBeWritten", selfHosted, "vk_new", configFails,
                 "Permission denied", 3},
        SaveCase{"KeyCannotBeReadForTheRestart", selfHosted, "", failLoad, loadError, 4},
        SaveCase{"LoginItemRefuses", selfHosted, "vk_new", loginFails, "Not permitted", 6}),
    rowName);

} // namespace

#include "api/DeviceAuthorizationClientError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "support/TableRows.h"

#include <cmath>
#include <gtest/gtest.h>

using AsyncTest::waitUntil;
using Poll = DeviceAuthorizationPollResult;
using PollOutcome = FakeDeviceAuthorizer::Outcome<Poll>;
using StartOutcome = FakeDeviceAuthorizer::Outcome<DeviceAuthorizationSession>;
using Error = DeviceAuthorizationClientError;
using Pairs = QList<std::pair<QString, QString>>;

namespace {

const QString approve = "Approve this Mac in your browser.";
const QString waitingForConnection = "Waiting for a connection. Your code is still active.";
const QString waitingForBrowser = "Waiting for browser approval…";
const QString expiredText = "Device sign in expired. Start sign in again to get a new code.";
const QString identityText = "Vantrel could not create a stable identity for this Mac.";
const QString invalidText = "Vantrel returned an invalid device authorization response.";
const QString helperText =
    "Tracker helper is missing at /opt/vantrel/libexec/vantrel/vantrel-tracker.";
const QString httpsText = "Enter a valid HTTPS Vantrel API URL.";
const QString unverifiedText = "The API key could not be verified after saving.";
const QString saveError = "Keychain operation failed with status -25308.";
const QString selfHosted = "https://self-hosted.example/api/v1";
const QString saved; // the outcome of a save that throws nothing
const QDateTime t0(QDate(2026, 5, 1), QTime(10, 0), Qt::UTC); // the harness clock

std::exception_ptr error(const Error& failure) {
    return std::make_exception_ptr(failure);
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
constexpr auto readsBackOther = [](AppHarness& h) { h.credentials.loadOverride = "vk_other"; };
constexpr auto noHelper = [](AppHarness& h) { h.installation.helper.reset(); };
constexpr auto noStatus = [](AppHarness& h) { h.supervisor.statusOnRefresh.reset(); };
constexpr auto idInBraces = [](AppHarness& h) {
    h.supervisor.statusOnRefresh->deviceId = "{6F9619FF-8B86-D011-B42D-00C04FC964FF}";
};
constexpr auto plainHTTP = [](AppHarness& h) { h.defaults.values["serverURL"] = "http://x.org"; };

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

    // With held sleeps: starts an attempt and waits until it shows its code and sleeps, or ends.
    void beginHeld() {
        h.taskSleeper.hold = true;
        app().beginDeviceAuthorization();
        ASSERT_TRUE(waitUntil(
            [&] { return h.taskSleeper.pendingCount() == 1 || !app().isAuthorizingDevice(); }));
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
        EXPECT_EQ(h.poller.starts.size(), signedIn ? 1 : 0);
        if (!signedIn) {
            EXPECT_EQ(app().deviceAuthorizationMessage(), std::nullopt);
        }
    }

    AppHarness h;
    std::unique_ptr<AppState> state;
};

// One failing attempt, run to its end.
struct AttemptCase {
    const char* name;
    QString error;
    std::vector<PollOutcome> polls = {};
    StartOutcome start = session();
    void (*arrange)(AppHarness&) = nothing;
};

class AttemptTest : public SignInTest, public ::testing::WithParamInterface<AttemptCase> {};

TEST_P(AttemptTest, EndsWithItsErrorAndLeavesNothingBehind) {
    GetParam().arrange(h);
    script(GetParam().start, GetParam().polls);

    app().beginDeviceAuthorization();
    ASSERT_TRUE(waitUntil([&] { return !app().isAuthorizingDevice(); }));

    EXPECT_EQ(app().presentedError(), GetParam().error);
    expectEnded();
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, AttemptTest,
    ::testing::Values(
        AttemptCase{"HelperMissing", helperText, {}, session(), noHelper},
        AttemptCase{"NoStatus", identityText, {}, session(), noStatus},
        AttemptCase{"DeviceIdInBraces", identityText, {}, session(), idInBraces},
        AttemptCase{"PlainHTTPServer", httpsText, {}, session(), plainHTTP},
        AttemptCase{"StartOffline",
                    "Vantrel could not be reached. Check your connection and try again.",
                    {},
                    error(Error::networkUnavailable())},
        AttemptCase{"Denied",
                    "Device access was denied. Start sign in again when you are ready.",
                    {Poll::pending(5), Poll::denied()}},
        AttemptCase{"Claimed",
                    "This sign-in request was already used. Start sign in again.",
                    {Poll::claimed()}},
        AttemptCase{"PollRejected",
                    "Vantrel rejected the device authorization request (HTTP 500).",
                    {error(Error::requestRejected(500))}},
        AttemptCase{"ExpiredByService", expiredText, {Poll::expired()}},
        // The code's lifetime is kept here too: one that has run out is not polled for.
        AttemptCase{"ExpiredOnArrival", expiredText, {approved}, session(5, 0)},
        AttemptCase{"PendingIntervalNaN", invalidText, {Poll::pending(std::nan(""))}},
        AttemptCase{"SessionIntervalBeyondAnySleep", invalidText, {}, session(1e19)},
        AttemptCase{
            "KeyReadsBackDifferently", unverifiedText, {approved}, session(), readsBackOther},
        AttemptCase{"KeyCannotBeSaved", saveError, {approved}, session(), failSave}),
    rowName);

// The first attempt is cancelled with an approval on the wire: the late approval is dropped
// unheard, and the next attempt runs as if there had been none. It polls never faster than once
// a second; the service may slow polling down but never speed it up, and a lost network keeps
// the pace.
TEST_F(SignInTest, ReplacesACancelledAttemptThenPollsAtTheSlowestPaceYetUntilTheKeyIsStored) {
    h.supervisor.statusOnRefresh->deviceId = "6f9619ff-8b86-d011-b42d-00c04fc964ff";
    h.authorizer.startOutcomes = {session(5, 900, "OLD1-CODE"), session(0.2, 600)};
    h.authorizer.pollOutcomes = {Poll::authorized("vk_late")};
    h.authorizer.pollGate.hold = true;
    beginHeld();
    h.taskSleeper.releaseOne();
    ASSERT_TRUE(waitUntil([&] { return h.authorizer.pollGate.pendingCount() == 1; }));
    app().cancelDeviceAuthorization();
    expectEnded();
    h.authorizer.pollGate.hold = false;
    h.authorizer.pollGate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));
    h.authorizer.pollOutcomes = {
        Poll::slowDown(0.5), Poll::pending(2.5), error(Error::networkUnavailable()),
        Poll::slowDown(10),  Poll::pending(4),   approved};

    app().beginDeviceAuthorization();
    app().beginDeviceAuthorization(); // ignored while one runs
    EXPECT_EQ(app().deviceAuthorizationMessage(), "Preparing a secure browser sign in…");
    ASSERT_TRUE(waitUntil([&] {
        return app().deviceAuthorizationCode() == "WDJB-MJHT" && h.taskSleeper.pendingCount() == 1;
    }));
    EXPECT_EQ(app().deviceAuthorizationExpiresAt(), t0.addSecs(600));
    EXPECT_EQ(h.workspace.opened.last(), QUrl("https://vantrel.app/device?code=WDJB-MJHT"));
    ASSERT_EQ(h.authorizer.startCalls.size(), 2);
    EXPECT_EQ(h.authorizer.startCalls[1], QUuid("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"));

    // A slow-down leaves the message as it was; the network coming and going alternates it.
    for (const QString& expected :
         {approve, approve, waitingForBrowser, waitingForConnection, waitingForConnection}) {
        EXPECT_EQ(app().deviceAuthorizationMessage(), expected);
        EXPECT_EQ(app().deviceAuthorizationCode(), "WDJB-MJHT");
        pollOnce();
    }
    EXPECT_EQ(app().deviceAuthorizationMessage(), waitingForBrowser);
    pollOnce();

    EXPECT_EQ(app().deviceAuthorizationMessage(), "Connected. Starting the tracker…");
    expectEnded(true);
    EXPECT_EQ(h.taskSleeper.requested, (QList<double>{5, 1, 1, 2.5, 2.5, 10, 10}));
    EXPECT_EQ(h.credentials.stored, "vk_1");
    EXPECT_EQ(h.poller.starts, (Pairs{{AppState::defaultServerURL, "vk_1"}}));
}

// --- Saving the settings -------------------------------------------------------------------

// A save's steps in order: cancel the sign-in and store the key (only for a typed key), save the
// address, write the configuration, restart the tracker (or stop it without a key), ask for the
// login item. Each row stops after some of them, with a browser sign-in waiting for its first
// poll and another key stored.
struct SaveCase {
    const char* name;
    QString url;
    QString key;
    void (*arrange)(AppHarness&);
    QString outcome;
    int stepsDone;
};

class SaveTest : public SignInTest, public ::testing::WithParamInterface<SaveCase> {};

TEST_P(SaveTest, LeavesExactlyTheEarlierStepsDone) {
    const SaveCase& row = GetParam();
    const bool typedKey = !row.key.trimmed().isEmpty();
    h.credentials.stored = "vk_old";
    script(session(), {Poll::pending(5)});
    beginHeld();
    row.arrange(h);
    const std::optional<QString> keyBefore = h.credentials.stored;

    QString outcome;
    try {
        AsyncTest::run(app().saveSettings(row.url, row.key, false));
    } catch (const VantrelError& error) {
        outcome = error.description();
    }
    EXPECT_EQ(outcome, row.outcome);

    EXPECT_EQ(app().isAuthorizingDevice() && app().deviceAuthorizationCode() == "WDJB-MJHT",
              !typedKey || row.stepsDone < 1);
    EXPECT_TRUE(h.authorizer.pollURLs.isEmpty()) << "a cancelled sign-in must not poll";
    EXPECT_EQ(h.credentials.stored, typedKey && row.stepsDone >= 2 ? row.key.trimmed() : keyBefore);
    EXPECT_EQ(app().serverURL() == selfHosted, row.stepsDone >= 3);
    EXPECT_EQ(h.defaults.string("serverURL") == selfHosted, row.stepsDone >= 3);
    EXPECT_EQ(h.defaults.commits, row.stepsDone >= 4 ? 1 : 0);
    EXPECT_EQ(h.configFile.writes, (row.stepsDone >= 4 ? Pairs{{"api_url", selfHosted}} : Pairs{}));
    EXPECT_EQ(h.supervisor.starts.size() + h.supervisor.stops.size(), row.stepsDone >= 5 ? 1 : 0);
    const bool tracking = !h.supervisor.starts.isEmpty();
    EXPECT_EQ(app().hasCredential(), tracking);
    EXPECT_EQ(h.poller.starts, (tracking ? Pairs{{selfHosted, *h.credentials.stored}} : Pairs{}));
    EXPECT_EQ(h.loginItems.calls.size(), row.stepsDone >= 6 ? 1 : 0);
    // The preference only changes once the login item agreed, and then for the next launch too.
    EXPECT_EQ(app().launchAtLogin(), row.outcome != saved);
    EXPECT_EQ(h.make()->launchAtLogin(), row.outcome != saved);
}

const QString preferencesError = "Could not save the preferences in /home/tester/Vantrel.conf.";

INSTANTIATE_TEST_SUITE_P(
    Settings, SaveTest,
    ::testing::Values(SaveCase{"BlankKeyFieldKeepsTheKeyAndTheSignIn", " " + selfHosted + "/\n",
                               " \n\t ", nothing, saved, 6},
                      SaveCase{"TypedKeyIsTrimmedAndReplacesTheSignIn", selfHosted + "/",
                               "  vk_typed \n", nothing, saved, 6},
                      SaveCase{"NoKeyAnywhereStopsTracking", selfHosted, "",
                               [](AppHarness& h) { h.credentials.stored.reset(); }, saved, 6},
                      SaveCase{"PlainHTTPIsRejectedFirst", "http://x.org/api", "vk_new", nothing,
                               httpsText, 0},
                      SaveCase{"KeyCannotBeStored", selfHosted, "vk_new", failSave, saveError, 1},
                      SaveCase{"KeyReadsBackDifferently", selfHosted, "vk_new", readsBackOther,
                               unverifiedText, 2},
                      SaveCase{"PreferencesCannotBeSaved", selfHosted, "vk_new",
                               [](AppHarness& h) { h.defaults.commitFailure = preferencesError; },
                               preferencesError, 3},
                      SaveCase{"KeyCannotBeReadForTheRestart", selfHosted, "",
                               [](AppHarness& h) { h.credentials.failLoad = -25293; },
                               "Keychain operation failed with status -25293.", 4},
                      SaveCase{"LoginItemRefuses", selfHosted, "vk_new",
                               [](AppHarness& h) { h.loginItems.failure = "Not permitted"; },
                               "Not permitted", 6}),
    rowName);

// --- Signing out ---------------------------------------------------------------------------

struct SignOutCase {
    const char* name;
    QString serverURL;
    std::optional<qint32> deleteFails;
};

class SignOutTest : public SignInTest, public ::testing::WithParamInterface<SignOutCase> {};

// Sign-out stops tracking and any sign-in at once; forgetting the key and revoking it are each
// best effort.
TEST_P(SignOutTest, StopsTrackingAndForgetsAndRevokesWhatItCan) {
    const SignOutCase& row = GetParam();
    h.credentials.stored = "key-1";
    h.authorizer.revokeFailure = std::make_exception_ptr(PlatformError("offline"));
    h.defaults.values["serverURL"] = row.serverURL;
    AsyncTest::run(app().start()); // a server URL that does not parse ends start-up early
    if (h.poller.onUpdate) {
        h.poller.onUpdate({"2 hrs", 7200});
    }
    h.credentials.failDelete = row.deleteFails;
    // Signing in again (after a rejected key) is under way with its code shown, unless the server
    // URL ended it at once.
    script(session());
    beginHeld();

    AsyncTest::run(app().signOut());
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.credentials.stored.has_value(), row.deleteFails.has_value());
    EXPECT_EQ(app().hasCredential(), row.deleteFails.has_value());
    EXPECT_EQ(app().presentedError().has_value(), row.deleteFails.has_value());
    EXPECT_EQ(h.supervisor.stops, QList<bool>{true});
    EXPECT_FALSE(h.poller.onUpdate) << "the total stopped";
    EXPECT_FALSE(app().todaySummary()) << "a kept key must not keep showing the old total";
    EXPECT_FALSE(app().isAuthorizingDevice()) << "a sign-in must not bring a key back";
    EXPECT_EQ(app().deviceAuthorizationCode(), std::nullopt);
    const bool revokes = row.serverURL == selfHosted; // not at an address that does not parse
    EXPECT_EQ(h.authorizer.revokes, (revokes ? Pairs{{row.serverURL, "key-1"}} : Pairs{}));
}

INSTANTIATE_TEST_SUITE_P(SignOut, SignOutTest,
                         ::testing::Values(SignOutCase{"plain", selfHosted, std::nullopt},
                                           SignOutCase{"deleteFails", selfHosted, -25308},
                                           SignOutCase{"unparsableServerURL",
                                                       "https://exa mple.com", std::nullopt}),
                         rowName);

} // namespace

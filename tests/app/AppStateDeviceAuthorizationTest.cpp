#include "api/DeviceAuthorizationClientError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "system/KeychainStoreError.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <ostream>

using AsyncTest::waitUntil;
using Poll = DeviceAuthorizationPollResult;
using PollOutcome = FakeDeviceAuthorizer::Outcome<Poll>;
using StartOutcome = FakeDeviceAuthorizer::Outcome<DeviceAuthorizationSession>;

// Readable failure messages for the texts compared below.
static void PrintTo(const QString& value, std::ostream* os) {
    *os << '"' << value.toStdString() << '"';
}

namespace {

// A parameterised row prints as its name.
template <typename Row>
requires requires(const Row& row) {
    row.name;
}
void PrintTo(const Row& row, std::ostream* os) {
    *os << row.name;
}

const std::string preparing = "Preparing a secure browser sign in…";
const std::string approve = "Approve this Mac in your browser.";
const std::string waitingForApproval = "Waiting for browser approval…";
const std::string waitingForConnection = "Waiting for a connection. Your code is still active.";
const std::string connected = "Connected. Starting the tracker…";
const std::string expiredText = "Device sign in expired. Start sign in again to get a new code.";
const std::string identityText = "Vantrel could not create a stable identity for this Mac.";
const std::string invalidResponseText =
    "Vantrel returned an invalid device authorization response.";

// Names each row of a parameterised test after its `name` member.
struct RowName {
    template <typename Row>
    std::string operator()(const ::testing::TestParamInfo<Row>& row) const {
        return row.param.name;
    }
};

std::string text(const std::optional<QString>& value) {
    return value ? value->toStdString() : "(none)";
}

PollOutcome failure(const DeviceAuthorizationClientError& error) {
    return std::make_exception_ptr(error);
}

PollOutcome networkDown() {
    return failure(DeviceAuthorizationClientError::networkUnavailable());
}

// Drives one AppState through browser sign-ins on virtual time: the polling sleeps end at once
// (or when released, with `hold`), and the clock advances by what they slept.
class DeviceSignInTest : public ::testing::Test {
protected:
    DeviceSignInTest() { h.supervisor.statusOnRefresh = sampleTrackerStatus(); }

    ~DeviceSignInTest() override {
        // Let an unfinished attempt wind down while the fakes it waits on still exist.
        if (state) {
            state->cancelDeviceAuthorization();
        }
        while (h.authorizer.pollGate.pendingCount() > 0) {
            h.authorizer.pollGate.releaseOne();
        }
        AsyncTest::spin(std::chrono::milliseconds(20));
    }

    AppState& app() {
        if (!state) {
            AppStateCollaborators collaborators = h.collaborators();
            collaborators.now = [this] {
                return h.now.addMSecs(static_cast<qint64>(h.taskSleeper.elapsed * 1000));
            };
            state = std::make_unique<AppState>(std::move(collaborators), false);
            QObject::connect(state.get(), &AppState::deviceAuthorizationMessageChanged, [this] {
                messages.push_back(text(state->deviceAuthorizationMessage()));
            });
        }
        return *state;
    }

    DeviceAuthorizationSession session(double interval = 5, qint64 expiresIn = 900,
                                       const QString& code = "WDJB-MJHT") const {
        return DeviceAuthorizationSession{
            .authorizationID = QUuid("{0b3f1e6a-5d2c-4c1e-9a53-1f4f0e9f7a11}"),
            .deviceCode = "device-code-" + code,
            .userCode = code,
            .verificationURL = QUrl("https://vantrel.app/device"),
            .verificationURLComplete = QUrl("https://vantrel.app/device?code=" + code),
            .expiresAt = h.now.addSecs(expiresIn),
            .interval = interval,
        };
    }

    void script(const StartOutcome& start, std::initializer_list<PollOutcome> polls = {}) {
        h.authorizer.startOutcomes = {start};
        h.authorizer.pollOutcomes = polls;
    }

    // Runs one attempt until it ends, however it ends.
    void runAttempt() {
        app().beginDeviceAuthorization();
        ASSERT_TRUE(waitUntil([&] { return !app().isAuthorizingDevice(); }));
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

    void expectSignInFieldsCleared() {
        EXPECT_FALSE(app().isAuthorizingDevice());
        EXPECT_EQ(app().deviceAuthorizationCode(), std::nullopt);
        EXPECT_EQ(app().deviceAuthorizationExpiresAt(), std::nullopt);
        EXPECT_EQ(text(app().deviceAuthorizationMessage()), "(none)");
        const auto opened = h.workspace.opened.size();
        app().openDeviceAuthorizationPage();
        EXPECT_EQ(h.workspace.opened.size(), opened) << "the verification page was forgotten";
    }

    void expectNothingStoredOrStarted() {
        EXPECT_EQ(h.credentials.saveCount, 0);
        EXPECT_FALSE(app().hasCredential());
        EXPECT_TRUE(h.supervisor.starts.isEmpty());
        EXPECT_TRUE(h.poller.starts.isEmpty());
    }

    AppHarness h;
    std::unique_ptr<AppState> state;
    std::vector<std::string> messages;
};

// --- Polling interval --------------------------------------------------------------------------

struct IntervalCase {
    const char* name;
    double sessionInterval;
    std::vector<PollOutcome> polls; // followed by an authorization
    std::vector<double> sleeps;
};

class PollingIntervalTest : public DeviceSignInTest,
                            public ::testing::WithParamInterface<IntervalCase> {};

TEST_P(PollingIntervalTest, SleepsBeforeEachPoll) {
    const IntervalCase& row = GetParam();
    script(session(row.sessionInterval));
    h.authorizer.pollOutcomes.assign(row.polls.begin(), row.polls.end());
    h.authorizer.pollOutcomes.push_back(Poll::authorized("vk_live_1"));

    runAttempt();

    EXPECT_EQ(std::vector<double>(h.taskSleeper.requested.begin(), h.taskSleeper.requested.end()),
              row.sleeps);
    EXPECT_EQ(h.authorizer.pollURLs.size(), static_cast<qsizetype>(row.sleeps.size()));
    EXPECT_EQ(text(app().presentedError()), "(none)");
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, PollingIntervalTest,
    ::testing::Values(
        IntervalCase{"SubSecondIntervalPollsEverySecond", 0.2, {Poll::pending(0.2)}, {1, 1}},
        IntervalCase{"ZeroIntervalPollsEverySecond", 0, {Poll::pending(0)}, {1, 1}},
        IntervalCase{"PendingRaisesButNeverLowers",
                     0.2,
                     {Poll::pending(3), Poll::pending(5), Poll::pending(2)},
                     {1, 3, 5, 5}},
        IntervalCase{"SlowDownRaises", 2, {Poll::slowDown(10), Poll::pending(4)}, {2, 10, 10}},
        IntervalCase{"SlowDownNeverLowers", 6, {Poll::slowDown(3)}, {6, 6}},
        IntervalCase{"NetworkFailureKeepsInterval", 4, {networkDown(), networkDown()}, {4, 4, 4}}),
    RowName());

struct UnusableIntervalCase {
    const char* name;
    double sessionInterval;
    double pendingInterval;
    qsizetype polls;
};

class UnusableIntervalTest : public DeviceSignInTest,
                             public ::testing::WithParamInterface<UnusableIntervalCase> {};

TEST_P(UnusableIntervalTest, EndsAsAnInvalidResponse) {
    const UnusableIntervalCase& row = GetParam();
    script(session(row.sessionInterval), {Poll::pending(row.pendingInterval)});

    runAttempt();

    EXPECT_EQ(text(app().presentedError()), invalidResponseText);
    EXPECT_EQ(h.authorizer.pollURLs.size(), row.polls);
    expectSignInFieldsCleared();
}

constexpr double infinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(DeviceSignIn, UnusableIntervalTest,
                         ::testing::Values(UnusableIntervalCase{"SessionNaN", std::nan(""), 5, 0},
                                           UnusableIntervalCase{"SessionInfinite", infinity, 5, 0},
                                           UnusableIntervalCase{"SessionBeyondNanosecondRange",
                                                                2e10, 5, 0},
                                           UnusableIntervalCase{"PendingNaN", 5, std::nan(""), 1},
                                           UnusableIntervalCase{"PendingInfinite", 5, infinity, 1}),
                         RowName());

// --- Progress messages -------------------------------------------------------------------------

TEST_F(DeviceSignInTest, ShowsEachProgressMessageInOrder) {
    script(session(), {Poll::pending(5), Poll::authorized("vk_live_1")});

    runAttempt();

    EXPECT_EQ(messages,
              (std::vector<std::string>{preparing, approve, waitingForApproval, connected}));
}

TEST_F(DeviceSignInTest, ShowsTheFirstMessageBeforeBeginReturns) {
    script(session());
    h.taskSleeper.hold = true;

    app().beginDeviceAuthorization();

    EXPECT_TRUE(app().isAuthorizingDevice());
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), preparing);
}

TEST_F(DeviceSignInTest, NetworkLossAndRecoveryAlternateTheWaitingMessages) {
    script(session(), {networkDown(), networkDown(), networkDown(), Poll::pending(5), networkDown(),
                       Poll::slowDown(8), Poll::pending(5)});
    beginUntilFirstSleep();

    const std::vector<std::string> afterEachPoll = {
        waitingForConnection, waitingForConnection, waitingForConnection, waitingForApproval,
        waitingForConnection, waitingForConnection, waitingForApproval};
    for (const std::string& expected : afterEachPoll) {
        pollOnce();
        EXPECT_EQ(text(app().deviceAuthorizationMessage()), expected);
        EXPECT_TRUE(app().isAuthorizingDevice());
        EXPECT_EQ(app().deviceAuthorizationCode(), "WDJB-MJHT");
    }
    EXPECT_EQ(text(app().presentedError()), "(none)");
}

TEST_F(DeviceSignInTest, SlowDownKeepsTheCodeMessage) {
    script(session(), {Poll::slowDown(10)});
    beginUntilFirstSleep();

    pollOnce();

    EXPECT_EQ(text(app().deviceAuthorizationMessage()), approve);
    EXPECT_EQ(h.taskSleeper.requested.last(), 10);
}

// --- Showing the code --------------------------------------------------------------------------

TEST_F(DeviceSignInTest, ShowsTheCodeAndOpensTheApprovalPage) {
    h.installation.version = "1.4.2";
    script(session(5, 600));
    beginUntilFirstSleep();

    EXPECT_EQ(app().deviceAuthorizationCode(), "WDJB-MJHT");
    EXPECT_EQ(app().deviceAuthorizationExpiresAt(), h.now.addSecs(600));
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), approve);
    EXPECT_EQ(h.workspace.opened, QList<QUrl>{QUrl("https://vantrel.app/device?code=WDJB-MJHT")});
    EXPECT_EQ(h.authorizer.pollURLs.size(), 0) << "the first poll waits one interval";

    ASSERT_EQ(h.authorizer.startCalls.size(), 1);
    const FakeDeviceAuthorizer::StartCall& call = h.authorizer.startCalls.first();
    EXPECT_EQ(call.serverURL, AppState::defaultServerURL);
    EXPECT_EQ(call.deviceID, QUuid("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"));
    EXPECT_EQ(call.deviceName, "Anna’s Laptop");
    EXPECT_EQ(call.clientVersion, "1.4.2");
    EXPECT_EQ(h.supervisor.refreshes,
              (QList<std::pair<QString, QString>>{
                  {*h.installation.helper, "/home/tester/.vantrel/config.toml"}}));

    app().openDeviceAuthorizationPage();
    EXPECT_EQ(h.workspace.opened.size(), 2);
    EXPECT_EQ(h.workspace.opened.last(), h.workspace.opened.first());
}

TEST_F(DeviceSignInTest, SendsTheFallbackVersionWithoutAnInstalledVersion) {
    script(session());
    beginUntilFirstSleep();

    ASSERT_EQ(h.authorizer.startCalls.size(), 1);
    EXPECT_EQ(h.authorizer.startCalls.first().clientVersion, "0.6.1");
}

TEST_F(DeviceSignInTest, ANewAttemptClearsTheShownError) {
    script(session(), {Poll::denied()});
    runAttempt();
    ASSERT_NE(app().presentedError(), std::nullopt);

    script(session());
    beginUntilFirstSleep();

    EXPECT_EQ(text(app().presentedError()), "(none)");
}

TEST_F(DeviceSignInTest, KeepsPollingTheAddressItStartedWith) {
    script(session(), {Poll::pending(5), Poll::authorized("vk_live_1")});
    beginUntilFirstSleep();

    app().saveSettings("https://self-hosted.example/api/v1", "", true);
    pollOnce();
    pollOnce();

    EXPECT_EQ(h.authorizer.pollURLs, QList<QString>(2, AppState::defaultServerURL));
    EXPECT_EQ(app().hasCredential(), true);
}

// --- Failures before the service is asked ------------------------------------------------------

struct EarlyFailureCase {
    const char* name;
    std::function<void(AppHarness&)> arrange;
    std::string message;
};

class EarlyFailureTest : public DeviceSignInTest,
                         public ::testing::WithParamInterface<EarlyFailureCase> {};

TEST_P(EarlyFailureTest, FailsWithoutAnyRequest) {
    GetParam().arrange(h);
    script(session());

    runAttempt();

    EXPECT_EQ(text(app().presentedError()), GetParam().message);
    EXPECT_TRUE(h.authorizer.startCalls.isEmpty());
    EXPECT_TRUE(h.workspace.opened.isEmpty());
    expectSignInFieldsCleared();
    expectNothingStoredOrStarted();
}

std::function<void(AppHarness&)> withDeviceId(const QString& deviceId) {
    return [deviceId](AppHarness& harness) {
        TrackerStatus status = sampleTrackerStatus();
        status.deviceId = deviceId;
        harness.supervisor.statusOnRefresh = status;
    };
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, EarlyFailureTest,
    ::testing::Values(
        EarlyFailureCase{"HelperMissing",
                         [](AppHarness& harness) {
                             harness.installation.helper.reset();
                             harness.installation.expected = "/opt/vantrel/bin/vantrel-tracker";
                         },
                         "Tracker helper is missing at /opt/vantrel/bin/vantrel-tracker."},
        EarlyFailureCase{"NoStatus",
                         [](AppHarness& harness) {
                             harness.supervisor.statusOnRefresh.reset();
                             harness.supervisor.errorOnRefresh = "status command failed";
                         },
                         identityText},
        EarlyFailureCase{"EmptyDeviceId", withDeviceId(""), identityText},
        EarlyFailureCase{"DeviceIdNotAUUID", withDeviceId("anna-laptop"), identityText},
        EarlyFailureCase{"DeviceIdInBraces", withDeviceId("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"),
                         identityText},
        EarlyFailureCase{"DeviceIdWithoutDashes", withDeviceId("6F9619FF8B86D011B42D00C04FC964FF"),
                         identityText},
        EarlyFailureCase{"DeviceIdWithTrailingNewline",
                         withDeviceId("6F9619FF-8B86-D011-B42D-00C04FC964FF\n"), identityText},
        EarlyFailureCase{"PlainHTTPServer",
                         [](AppHarness& harness) {
                             harness.defaults.values.insert("serverURL",
                                                            "http://vantrel.internal/api");
                         },
                         "Enter a valid HTTPS Vantrel API URL."}),
    RowName());

TEST_F(DeviceSignInTest, AcceptsALowerCaseDeviceId) {
    withDeviceId("6f9619ff-8b86-d011-b42d-00c04fc964ff")(h);
    script(session());
    beginUntilFirstSleep();

    ASSERT_EQ(h.authorizer.startCalls.size(), 1);
    EXPECT_EQ(h.authorizer.startCalls.first().deviceID,
              QUuid("{6F9619FF-8B86-D011-B42D-00C04FC964FF}"));
}

// --- How an attempt ends -----------------------------------------------------------------------

struct EndingCase {
    const char* name;
    bool failsAtStart;
    std::exception_ptr startFailure;
    PollOutcome poll;
    std::string message;
};

class FailedAttemptTest : public DeviceSignInTest,
                          public ::testing::WithParamInterface<EndingCase> {};

TEST_P(FailedAttemptTest, ClearsTheSignInAndShowsWhy) {
    const EndingCase& row = GetParam();
    h.credentials.stored = "vk_previous";
    if (row.failsAtStart) {
        script(row.startFailure);
    } else {
        script(session(), {Poll::pending(5), row.poll});
    }

    runAttempt();

    EXPECT_EQ(text(app().presentedError()), row.message);
    expectSignInFieldsCleared();
    EXPECT_EQ(h.credentials.stored, "vk_previous");
    EXPECT_EQ(h.credentials.saveCount, 0);
    EXPECT_TRUE(h.supervisor.starts.isEmpty());
}

EndingCase startFails(const char* name, const DeviceAuthorizationClientError& error,
                      std::string message) {
    return {name, true, std::make_exception_ptr(error), Poll::denied(), std::move(message)};
}

EndingCase pollEnds(const char* name, PollOutcome outcome, std::string message) {
    return {name, false, nullptr, std::move(outcome), std::move(message)};
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, FailedAttemptTest,
    ::testing::Values(
        startFails("StartOffline", DeviceAuthorizationClientError::networkUnavailable(),
                   "Vantrel could not be reached. Check your connection and try again."),
        startFails("StartRejected", DeviceAuthorizationClientError::requestRejected(403),
                   "Vantrel rejected the device authorization request (HTTP 403)."),
        startFails("StartGarbled", DeviceAuthorizationClientError::invalidResponse(),
                   invalidResponseText),
        pollEnds("Denied", Poll::denied(),
                 "Device access was denied. Start sign in again when you are ready."),
        pollEnds("ExpiredByService", Poll::expired(), expiredText),
        pollEnds("Claimed", Poll::claimed(),
                 "This sign-in request was already used. Start sign in again."),
        pollEnds("PollRejected", failure(DeviceAuthorizationClientError::requestRejected(500)),
                 "Vantrel rejected the device authorization request (HTTP 500)."),
        pollEnds("PollGarbled", failure(DeviceAuthorizationClientError::invalidResponse()),
                 invalidResponseText)),
    RowName());

struct LocalExpiryCase {
    const char* name;
    PollOutcome whileWaiting;
};

class LocalExpiryTest : public DeviceSignInTest,
                        public ::testing::WithParamInterface<LocalExpiryCase> {};

TEST_P(LocalExpiryTest, StopsPollingOnceTheCodeHasExpired) {
    // Polls at 4, 8 and 12 seconds; the code is gone after 10.
    script(session(4, 10), {GetParam().whileWaiting});

    runAttempt();

    EXPECT_EQ(h.authorizer.pollURLs.size(), 3);
    EXPECT_EQ(text(app().presentedError()), expiredText);
    expectSignInFieldsCleared();
}

INSTANTIATE_TEST_SUITE_P(DeviceSignIn, LocalExpiryTest,
                         ::testing::Values(LocalExpiryCase{"StillPending", Poll::pending(4)},
                                           LocalExpiryCase{"StillOffline", networkDown()}),
                         RowName());

TEST_F(DeviceSignInTest, ACodeExpiredOnArrivalIsNeverPolled) {
    script(session(5, 0), {Poll::authorized("vk_live_1")});

    runAttempt();

    EXPECT_TRUE(h.authorizer.pollURLs.isEmpty());
    EXPECT_TRUE(h.taskSleeper.requested.isEmpty());
    EXPECT_EQ(text(app().presentedError()), expiredText);
    expectSignInFieldsCleared();
    expectNothingStoredOrStarted();
}

// --- Completion --------------------------------------------------------------------------------

TEST_F(DeviceSignInTest, StoresTheKeyAndStartsTracking) {
    h.credentials.stored = "vk_previous";
    script(session(), {Poll::pending(5), Poll::authorized("vk_live_1")});

    runAttempt();

    EXPECT_EQ(h.credentials.stored, "vk_live_1");
    EXPECT_TRUE(app().hasCredential());
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), connected);
    EXPECT_EQ(app().deviceAuthorizationCode(), std::nullopt);
    EXPECT_EQ(app().deviceAuthorizationExpiresAt(), std::nullopt);
    EXPECT_EQ(text(app().presentedError()), "(none)");
    app().openDeviceAuthorizationPage();
    EXPECT_EQ(h.workspace.opened.size(), 1) << "the verification page was forgotten";

    const LaunchConfiguration expected{
        .executableURL = *h.installation.helper,
        .configURL = "/home/tester/.vantrel/config.toml",
        .apiKey = "vk_live_1",
        .deviceName = "Anna’s Laptop",
        .stdoutURL = "/home/tester/.vantrel/tracker/stdout.log",
        .stderrURL = "/home/tester/.vantrel/tracker/stderr.log",
    };
    EXPECT_EQ(h.supervisor.starts, QList<LaunchConfiguration>{expected});
    EXPECT_EQ(h.poller.starts,
              (QList<std::pair<QString, QString>>{{AppState::defaultServerURL, "vk_live_1"}}));
}

struct UnverifiedKeyCase {
    const char* name;
    QString deliveredKey;
    std::function<void(InMemoryCredentialStore&)> arrange;
    std::string message;
};

class UnverifiedKeyTest : public DeviceSignInTest,
                          public ::testing::WithParamInterface<UnverifiedKeyCase> {};

TEST_P(UnverifiedKeyTest, FailsWithoutStartingTheTracker) {
    const UnverifiedKeyCase& row = GetParam();
    row.arrange(h.credentials);
    script(session(), {Poll::authorized(row.deliveredKey)});

    runAttempt();

    EXPECT_EQ(text(app().presentedError()), row.message);
    expectSignInFieldsCleared();
    EXPECT_FALSE(app().hasCredential());
    EXPECT_TRUE(h.supervisor.starts.isEmpty());
    EXPECT_TRUE(h.poller.starts.isEmpty());
}

const std::string unverifiedText = "The API key could not be verified after saving.";

INSTANTIATE_TEST_SUITE_P(
    DeviceSignIn, UnverifiedKeyTest,
    ::testing::Values(
        UnverifiedKeyCase{"KeyWithBlanksIsStoredTrimmed", " vk_live_1\n",
                          [](InMemoryCredentialStore&) {}, unverifiedText},
        UnverifiedKeyCase{"StoreReadsBackAnotherKey", "vk_live_1",
                          [](InMemoryCredentialStore& store) { store.loadOverride = "vk_other"; },
                          unverifiedText},
        UnverifiedKeyCase{"StoreCannotSave", "vk_live_1",
                          [](InMemoryCredentialStore& store) { store.failSave = -25308; },
                          "Keychain operation failed with status -25308."},
        UnverifiedKeyCase{"StoreCannotReadBack", "vk_live_1",
                          [](InMemoryCredentialStore& store) { store.failLoad = -25293; },
                          "Keychain operation failed with status -25293."}),
    RowName());

// --- Beginning twice and cancelling ------------------------------------------------------------

TEST_F(DeviceSignInTest, BeginWhileAnAttemptRunsChangesNothing) {
    script(session());
    h.taskSleeper.hold = true;
    app().beginDeviceAuthorization();
    app().beginDeviceAuthorization(); // still preparing
    ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 1; }));
    const std::vector<std::string> before = messages;

    app().beginDeviceAuthorization(); // code shown
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.supervisor.refreshes.size(), 1);
    EXPECT_EQ(h.authorizer.startCalls.size(), 1);
    EXPECT_EQ(h.workspace.opened.size(), 1);
    EXPECT_EQ(h.taskSleeper.requested.size(), 1);
    EXPECT_EQ(messages, before);
    EXPECT_TRUE(app().isAuthorizingDevice());
}

TEST_F(DeviceSignInTest, CancelDuringTheSleepEndsQuietly) {
    script(session(), {Poll::authorized("vk_live_1")});
    beginUntilFirstSleep();

    app().cancelDeviceAuthorization();
    expectSignInFieldsCleared();
    ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 0; }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_TRUE(h.authorizer.pollURLs.isEmpty());
    EXPECT_EQ(text(app().presentedError()), "(none)");
    expectSignInFieldsCleared();
    expectNothingStoredOrStarted();
}

TEST_F(DeviceSignInTest, CancelWhileStartingDropsTheSession) {
    script(session());
    app().beginDeviceAuthorization(); // suspended in the status refresh

    app().cancelDeviceAuthorization();
    ASSERT_TRUE(waitUntil([&] { return !h.authorizer.startCalls.isEmpty(); }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_TRUE(h.workspace.opened.isEmpty());
    EXPECT_TRUE(h.taskSleeper.requested.isEmpty());
    EXPECT_EQ(text(app().presentedError()), "(none)");
    expectSignInFieldsCleared();
}

struct LateAnswerCase {
    const char* name;
    PollOutcome answer;
};

class LateAnswerTest : public DeviceSignInTest,
                       public ::testing::WithParamInterface<LateAnswerCase> {};

// A reply that arrives after the user cancelled belongs to an abandoned attempt: it must not
// bring back a message, show an error, or sign in.
TEST_P(LateAnswerTest, IsIgnoredAfterCancel) {
    script(session(), {GetParam().answer});
    h.authorizer.pollGate.hold = true;
    beginUntilFirstSleep();
    h.taskSleeper.releaseOne();
    ASSERT_TRUE(waitUntil([&] { return h.authorizer.pollGate.pendingCount() == 1; }));

    app().cancelDeviceAuthorization();
    h.authorizer.pollGate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.authorizer.pollURLs.size(), 1);
    EXPECT_EQ(text(app().presentedError()), "(none)");
    expectSignInFieldsCleared();
    expectNothingStoredOrStarted();
}

INSTANTIATE_TEST_SUITE_P(DeviceSignIn, LateAnswerTest,
                         ::testing::Values(LateAnswerCase{"Pending", Poll::pending(5)},
                                           LateAnswerCase{"Offline", networkDown()},
                                           LateAnswerCase{"Denied", Poll::denied()},
                                           LateAnswerCase{"Authorized",
                                                          Poll::authorized("vk_live_1")}),
                         RowName());

TEST_F(DeviceSignInTest, ACancelledAttemptLeavesItsSuccessorAlone) {
    h.authorizer.startOutcomes = {session(5, 900, "OLD1-CODE"), session(5, 900, "NEW2-CODE")};
    h.authorizer.pollOutcomes = {Poll::authorized("vk_live_2")};
    beginUntilFirstSleep();

    app().cancelDeviceAuthorization();
    app().beginDeviceAuthorization();
    // The old attempt wakes from its cancelled sleep while the new one asks for its code.
    ASSERT_TRUE(waitUntil([&] {
        return app().deviceAuthorizationCode() == "NEW2-CODE" && h.taskSleeper.pendingCount() == 1;
    }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_TRUE(app().isAuthorizingDevice());
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), approve);
    app().beginDeviceAuthorization();
    EXPECT_EQ(h.authorizer.startCalls.size(), 2) << "the new attempt must still count as running";

    pollOnce();
    EXPECT_EQ(h.credentials.stored, "vk_live_2");
    EXPECT_FALSE(app().isAuthorizingDevice());
}

TEST_F(DeviceSignInTest, DestroyingTheStateMidAttemptIsSafe) {
    script(session(), {Poll::authorized("vk_live_1")});
    beginUntilFirstSleep();

    state.reset();
    ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 0; }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_TRUE(h.authorizer.pollURLs.isEmpty());
    EXPECT_EQ(h.credentials.saveCount, 0);
}

} // namespace

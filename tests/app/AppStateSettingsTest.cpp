#include "app/VantrelError.h"
#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <gtest/gtest.h>
#include <ostream>

using AsyncTest::waitUntil;
using Poll = DeviceAuthorizationPollResult;

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

const QString selfHosted = "https://self-hosted.example/api/v1";
const std::string saved = "(saved)";

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

class SaveSettingsTest : public ::testing::Test {
protected:
    SaveSettingsTest() {
        h.credentials.stored = "vk_old";
        h.supervisor.statusOnRefresh = sampleTrackerStatus();
    }

    ~SaveSettingsTest() override {
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
            state = h.make();
        }
        return *state;
    }

    // The error text the save ended with, or "(saved)".
    std::string save(const QString& url, const QString& key, bool launchAtLogin = true) {
        try {
            app().saveSettings(url, key, launchAtLogin);
        } catch (const VantrelError& error) {
            return error.description().toStdString();
        }
        return saved;
    }

    // Leaves a browser sign-in waiting for its first poll.
    void beginSignIn() {
        h.authorizer.startOutcomes = {DeviceAuthorizationSession{
            .authorizationID = QUuid::createUuid(),
            .deviceCode = "device-code",
            .userCode = "WDJB-MJHT",
            .verificationURL = QUrl("https://vantrel.app/device"),
            .verificationURLComplete = QUrl("https://vantrel.app/device?code=WDJB-MJHT"),
            .expiresAt = h.now.addSecs(900),
            .interval = 5,
        }};
        h.authorizer.pollOutcomes = {Poll::pending(5)};
        h.taskSleeper.hold = true;
        app().beginDeviceAuthorization();
        ASSERT_TRUE(waitUntil([&] { return h.taskSleeper.pendingCount() == 1; }));
    }

    bool signInRunning() {
        return app().isAuthorizingDevice() && app().deviceAuthorizationCode() == "WDJB-MJHT";
    }

    AppHarness h;
    std::unique_ptr<AppState> state;
};

TEST_F(SaveSettingsTest, BlankKeyFieldKeepsTheKeyAndTheRunningSignIn) {
    beginSignIn();

    EXPECT_EQ(save(selfHosted, " \n\t "), saved);

    EXPECT_EQ(h.credentials.saveCount, 0);
    EXPECT_EQ(h.credentials.stored, "vk_old");
    EXPECT_TRUE(signInRunning());
    ASSERT_EQ(h.supervisor.starts.size(), 1);
    EXPECT_EQ(h.supervisor.starts.first().apiKey, "vk_old");
}

TEST_F(SaveSettingsTest, ReplacementKeyIsStoredTrimmedAndEndsTheSignIn) {
    beginSignIn();

    EXPECT_EQ(save(selfHosted, "  vk_new \n"), saved);

    EXPECT_EQ(h.credentials.stored, "vk_new");
    EXPECT_TRUE(app().hasCredential());
    EXPECT_FALSE(app().isAuthorizingDevice());
    EXPECT_EQ(app().deviceAuthorizationCode(), std::nullopt);
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), "(none)");
    ASSERT_EQ(h.supervisor.starts.size(), 1);
    EXPECT_EQ(h.supervisor.starts.first().apiKey, "vk_new");
    EXPECT_EQ(h.poller.starts, (QList<std::pair<QString, QString>>{{selfHosted, "vk_new"}}));
}

// The user replaced the key by hand while a browser sign-in had a poll on the wire: the approval
// that comes back afterwards must not overwrite the typed key.
TEST_F(SaveSettingsTest, ATypedKeyWinsOverALateBrowserApproval) {
    h.authorizer.pollGate.hold = true;
    beginSignIn();
    h.authorizer.pollOutcomes = {Poll::authorized("vk_from_browser")};
    h.taskSleeper.releaseOne();
    ASSERT_TRUE(waitUntil([&] { return h.authorizer.pollGate.pendingCount() == 1; }));

    EXPECT_EQ(save(selfHosted, "vk_typed"), saved);
    h.authorizer.pollGate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(h.credentials.stored, "vk_typed");
    ASSERT_EQ(h.supervisor.starts.size(), 1);
    EXPECT_EQ(h.supervisor.starts.first().apiKey, "vk_typed");
    EXPECT_EQ(text(app().deviceAuthorizationMessage()), "(none)");
}

TEST_F(SaveSettingsTest, NormalisesAndPersistsTheAddress) {
    EXPECT_EQ(save("  https://self-hosted.example/api/v1/ \n", ""), saved);

    EXPECT_EQ(app().serverURL(), selfHosted);
    EXPECT_EQ(h.defaults.string("serverURL"), selfHosted);
    EXPECT_EQ(h.configFile.writes, (QList<std::pair<QString, QString>>{{"api_url", selfHosted}}));
    EXPECT_EQ(h.poller.starts, (QList<std::pair<QString, QString>>{{selfHosted, "vk_old"}}));
}

TEST_F(SaveSettingsTest, WritesTheConfigurationBeforeRestartingTheTracker) {
    qsizetype writesWhenStarted = -1;
    QObject::connect(&h.supervisor, &TrackerSupervising::helperRunningChanged,
                     [&] { writesWhenStarted = h.configFile.writes.size(); });

    EXPECT_EQ(save(selfHosted, "vk_new"), saved);

    EXPECT_EQ(writesWhenStarted, 1);
    EXPECT_EQ(h.supervisor.starts.size(), 1);
}

TEST_F(SaveSettingsTest, WithoutAnyKeyStopsTrackingAndForgetsTheCredential) {
    ASSERT_EQ(save(selfHosted, ""), saved);
    ASSERT_TRUE(app().hasCredential());
    h.credentials.stored.reset();

    EXPECT_EQ(save(selfHosted, ""), saved);

    EXPECT_FALSE(app().hasCredential());
    EXPECT_EQ(h.supervisor.stops, QList<bool>{true});
    EXPECT_EQ(h.supervisor.launchConfiguration(), std::nullopt);
    EXPECT_EQ(h.supervisor.starts.size(), 1) << "only the first save had a key to start with";
}

TEST_F(SaveSettingsTest, TurningLaunchAtLoginOffSticksForTheNextLaunch) {
    EXPECT_EQ(save(selfHosted, "", false), saved);

    EXPECT_EQ(h.loginItems.calls, QList<bool>{false});
    EXPECT_FALSE(app().launchAtLogin());
    EXPECT_EQ(h.defaults.values.value("launchAtLogin"), QVariant(false));
    EXPECT_EQ(h.defaults.values.value("launchAtLoginInitialized"), QVariant(true));
    EXPECT_FALSE(h.make()->launchAtLogin());
}

TEST_F(SaveSettingsTest, AMissingHelperStillCountsAsSaved) {
    h.installation.helper.reset();

    EXPECT_EQ(save(selfHosted, "vk_new"), saved);

    EXPECT_EQ(text(app().presentedError()),
              "Tracker helper is missing at /opt/vantrel/libexec/vantrel/vantrel-tracker.");
    EXPECT_TRUE(h.supervisor.starts.isEmpty());
    EXPECT_EQ(h.loginItems.calls, QList<bool>{true});
}

struct InvalidAddressCase {
    const char* name;
    QString url;
};

class InvalidAddressTest : public SaveSettingsTest,
                           public ::testing::WithParamInterface<InvalidAddressCase> {};

TEST_P(InvalidAddressTest, FailsBeforeTouchingAnything) {
    beginSignIn();

    EXPECT_EQ(save(GetParam().url, "vk_new", false), "Enter a valid HTTPS Vantrel API URL.");

    EXPECT_EQ(h.credentials.saveCount, 0);
    EXPECT_EQ(h.credentials.stored, "vk_old");
    EXPECT_TRUE(signInRunning());
    EXPECT_EQ(app().serverURL(), AppState::defaultServerURL);
    EXPECT_TRUE(h.defaults.values.isEmpty());
    EXPECT_TRUE(h.configFile.writes.isEmpty());
    EXPECT_TRUE(h.supervisor.starts.isEmpty());
    EXPECT_TRUE(h.supervisor.stops.isEmpty());
    EXPECT_TRUE(h.loginItems.calls.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Settings, InvalidAddressTest,
    ::testing::Values(InvalidAddressCase{"PlainHTTP", "http://self-hosted.example/api/v1"},
                      InvalidAddressCase{"UpperCaseScheme", "HTTPS://self-hosted.example/api"},
                      InvalidAddressCase{"NoScheme", "self-hosted.example/api/v1"},
                      InvalidAddressCase{"Empty", "  "}, InvalidAddressCase{"OnlySlashes", " // "}),
    RowName());

// Each way a save can fail, and what it has already changed by then.
struct SaveFailureCase {
    const char* name;
    QString key;
    std::function<void(AppHarness&)> arrange;
    std::string error;
    bool signInCancelled;
    QString storedKey;
    bool addressSaved; // AppState and defaults
    bool configWritten;
    bool trackerRestarted;
    bool loginItemAsked;
};

class SaveFailureTest : public SaveSettingsTest,
                        public ::testing::WithParamInterface<SaveFailureCase> {};

TEST_P(SaveFailureTest, LeavesExactlyTheEarlierStepsDone) {
    const SaveFailureCase& row = GetParam();
    beginSignIn();
    row.arrange(h);

    EXPECT_EQ(save(selfHosted, row.key, false), row.error);

    EXPECT_EQ(!signInRunning(), row.signInCancelled);
    EXPECT_EQ(h.credentials.stored, row.storedKey);
    EXPECT_EQ(app().serverURL() == selfHosted, row.addressSaved);
    EXPECT_EQ(h.defaults.string("serverURL") == selfHosted, row.addressSaved);
    EXPECT_EQ(!h.configFile.writes.isEmpty(), row.configWritten);
    EXPECT_EQ(h.supervisor.starts.size(), row.trackerRestarted ? 1 : 0);
    EXPECT_EQ(app().hasCredential(), row.trackerRestarted);
    EXPECT_EQ(!h.loginItems.calls.isEmpty(), row.loginItemAsked);
    // The preference only changes once the login item agreed.
    EXPECT_TRUE(app().launchAtLogin());
    EXPECT_FALSE(h.defaults.values.contains("launchAtLogin"));
    EXPECT_FALSE(h.defaults.values.contains("launchAtLoginInitialized"));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SaveFailureTest,
    ::testing::Values(
        SaveFailureCase{"KeyCannotBeStored", "vk_new",
                        [](AppHarness& harness) { harness.credentials.failSave = -25308; },
                        "Keychain operation failed with status -25308.", true, "vk_old", false,
                        false, false, false},
        SaveFailureCase{"KeyReadsBackDifferently", "vk_new",
                        [](AppHarness& harness) { harness.credentials.loadOverride = "vk_other"; },
                        "The API key could not be verified after saving.", true, "vk_new", false,
                        false, false, false},
        SaveFailureCase{"KeyCannotBeReadBack", "vk_new",
                        [](AppHarness& harness) { harness.credentials.failLoad = -25293; },
                        "Keychain operation failed with status -25293.", true, "vk_new", false,
                        false, false, false},
        SaveFailureCase{"ConfigurationCannotBeWritten", "vk_new",
                        [](AppHarness& harness) {
                            harness.configFile.failure = "config.toml: Permission denied";
                        },
                        "config.toml: Permission denied", true, "vk_new", true, false, false,
                        false},
        SaveFailureCase{"KeyCannotBeReadForTheRestart", "",
                        [](AppHarness& harness) { harness.credentials.failLoad = -25293; },
                        "Keychain operation failed with status -25293.", false, "vk_old", true,
                        true, false, false},
        SaveFailureCase{
            "LoginItemRefuses", "vk_new",
            [](AppHarness& harness) { harness.loginItems.failure = "Operation not permitted"; },
            "Operation not permitted", true, "vk_new", true, true, true, true}),
    RowName());

} // namespace

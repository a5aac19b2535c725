#include "system/LegacyTrackerMigration.h"

#include "ScriptedCommandRunner.h"
#include "SystemTestFiles.h"
#include "app/PlatformError.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/InMemoryCredentialStore.h"
#include "system/KeychainStoreError.h"
#include "system/LegacyTrackerMigrationError.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace SystemTestFiles;

namespace {

// Runs the migration to its end on the event loop. AsyncTest::run (QCoro::waitFor) never returns
// when a task throws after it has suspended, so the outcome is caught here instead.
LegacyMigrationResult runToEnd(LegacyTrackerMigration& migration) {
    std::optional<LegacyMigrationResult> result;
    std::exception_ptr error;
    bool finished = false;
    auto drive = [&]() -> QCoro::Task<void> {
        try {
            result = co_await migration.migrateIfNeeded();
        } catch (...) {
            error = std::current_exception();
        }
        finished = true;
    };
    drive();
    if (!AsyncTest::waitUntil([&] { return finished; }, std::chrono::seconds(10))) {
        throw std::runtime_error("the migration did not finish");
    }
    if (error) {
        std::rethrow_exception(error);
    }
    return *result;
}

const QString launchctl = "/usr/libexec/vantrel/vantrel-launchctl";
const QString firstTarget = "gui/501/com.vantrel.tracker";
const QString secondTarget = "gui/501/com.vantrel.quillon-tracker";

class MigrationTest : public testing::Test {
protected:
    QTemporaryDir m_home;
    TrackerRuntimePaths paths{m_home.path()};

    LegacyMigrationResult migrate(int maximumStatusChecks = 20) {
        LegacyTrackerMigration subject(paths, m_credentials, m_commands, m_sleeper, launchctl, 501,
                                       maximumStatusChecks);
        return runToEnd(subject);
    }
    // The description of whatever the migration threw, or "" when it succeeded.
    QString failure(int maximumStatusChecks = 20) {
        try {
            migrate(maximumStatusChecks);
        } catch (const VantrelError& error) {
            return error.description();
        }
        return {};
    }
    void writeConfig(const QByteArray& contents) { write(paths.configURL(), contents); }
    void writePlists() {
        for (const QString& plist : paths.legacyServicePlistURLs()) {
            write(plist, "<plist/>");
        }
    }

    InMemoryCredentialStore m_credentials;
    ScriptedCommandRunner m_commands;
    FakeSleeper m_sleeper;
};

TEST_F(MigrationTest, ImportsTheKeyBlanksItAndStopsBothServicesInOrder) {
    writeConfig("api_key = \"k1\"\n[tracker]\nlevel = 2\n");
    m_commands.printStatuses[firstTarget] = {0};

    EXPECT_EQ(migrate(), (LegacyMigrationResult{true, 0}));
    EXPECT_EQ(m_credentials.stored, "k1");
    EXPECT_EQ(read(paths.configURL()), "api_key = \"\"\n[tracker]\nlevel = 2\n");
    EXPECT_EQ(permissions(paths.configURL()), 0600u);
    EXPECT_EQ(m_commands.argumentLines(),
              QStringList({"bootout " + firstTarget, "print " + firstTarget, "print " + firstTarget,
                           "bootout " + secondTarget, "print " + secondTarget}));
    for (const auto& call : m_commands.calls) {
        EXPECT_EQ(call.executable, launchctl);
    }
    EXPECT_EQ(m_sleeper.requested, QList<double>({0.1}));
}

TEST_F(MigrationTest, MigratedSystemIsLeftAsItIs) {
    writeConfig("api_key = \"\"\n");
    const Identity before = identity(paths.configURL());

    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 0}));
    EXPECT_EQ(identity(paths.configURL()), before);
    EXPECT_EQ(m_credentials.saveCount, 0);
}

TEST_F(MigrationTest, MissingConfigFileIsNotCreated) {
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 0}));
    EXPECT_FALSE(QFile::exists(paths.dataDirectoryURL()));
}

TEST_F(MigrationTest, DeletesBothDefinitionFilesWhenTheServicesAreGone) {
    writePlists();
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 2}));
    for (const QString& plist : paths.legacyServicePlistURLs()) {
        EXPECT_FALSE(QFile::exists(plist));
    }
}

TEST_F(MigrationTest, CountsOnlyTheDefinitionFilesThatExist) {
    write(paths.legacyServicePlistURLs()[1], "<plist/>");
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 1}));
}

TEST_F(MigrationTest, ServiceThatLingersIsWaitedForInTenthsOfASecond) {
    m_commands.printStatuses[secondTarget] = {0, 0, 0};
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 0}));
    EXPECT_EQ(m_sleeper.requested, QList<double>({0.1, 0.1, 0.1}));
    EXPECT_EQ(m_commands.argumentLines().count("print " + secondTarget), 4);
}

TEST_F(MigrationTest, ServiceStillLoadedAfterEveryCheckNamesItsLabelAndStopsThere) {
    writePlists();
    m_commands.printStatuses[firstTarget] = std::deque<qint32>(20, 0);

    EXPECT_EQ(failure(), "The legacy tracker service com.vantrel.tracker is still running.");
    EXPECT_EQ(m_commands.argumentLines().count("print " + firstTarget), 20);
    EXPECT_EQ(m_sleeper.requested.size(), 20);
    EXPECT_FALSE(m_commands.argumentLines().contains("bootout " + secondTarget));
    EXPECT_TRUE(QFile::exists(paths.legacyServicePlistURLs()[0]));
}

TEST_F(MigrationTest, NoStatusChecksAllowedFailsWithoutAskingForTheStatus) {
    EXPECT_EQ(failure(0), "The legacy tracker service com.vantrel.tracker is still running.");
    EXPECT_EQ(m_commands.argumentLines(), QStringList{"bootout " + firstTarget});
    EXPECT_TRUE(m_sleeper.requested.isEmpty());
}

TEST_F(MigrationTest, ImportedKeyStaysImportedWhenAServiceWillNotStop) {
    writeConfig("api_key = \"k1\"\n");
    m_commands.printStatuses[secondTarget] = std::deque<qint32>(20, 0);

    EXPECT_EQ(failure(),
              "The legacy tracker service com.vantrel.quillon-tracker is still running.");
    EXPECT_EQ(m_credentials.stored, "k1");
    EXPECT_EQ(read(paths.configURL()), "api_key = \"\"\n");
}

TEST_F(MigrationTest, LaunchctlThatCannotStartIsReported) {
    m_commands.startFailure = "Could not start /bin/launchctl: No such file or directory";
    EXPECT_EQ(failure(), "Could not start /bin/launchctl: No such file or directory");
    EXPECT_EQ(m_commands.calls.size(), 1);
}

TEST_F(MigrationTest, ConfigFileThatIsNotUtf8StopsTheMigrationBeforeAnyCommand) {
    writeConfig("api_key = \"k\xFF\"\n");
    EXPECT_TRUE(failure().contains("is not valid UTF-8"));
    EXPECT_TRUE(m_commands.calls.isEmpty());
    EXPECT_EQ(m_credentials.saveCount, 0);
}

TEST_F(MigrationTest, DefinitionFileThatCannotBeDeletedStopsTheRest) {
    // A folder where the first definition file belongs cannot be unlinked.
    QDir().mkpath(paths.legacyServicePlistURLs()[0]);
    write(paths.legacyServicePlistURLs()[1], "<plist/>");

    EXPECT_EQ(failure(),
              "Could not delete " + paths.legacyServicePlistURLs()[0] + ": Is a directory");
    EXPECT_TRUE(QFile::exists(paths.legacyServicePlistURLs()[1]));
}

// Failures before the key is trusted leave the file and the services exactly as they were.
struct UntouchedRow {
    const char* name;
    QByteArray config;
    std::function<void(InMemoryCredentialStore&)> arrange;
    QString expected;
};

class MigrationKeyFailure : public MigrationTest,
                            public testing::WithParamInterface<UntouchedRow> {};

TEST_P(MigrationKeyFailure, LeavesTheFileAndServicesUntouched) {
    const UntouchedRow& row = GetParam();
    writeConfig(row.config);
    writePlists();
    row.arrange(m_credentials);
    const Identity before = identity(paths.configURL());

    EXPECT_EQ(failure(), row.expected);
    EXPECT_EQ(identity(paths.configURL()), before);
    EXPECT_EQ(read(paths.configURL()), row.config);
    EXPECT_TRUE(m_commands.calls.isEmpty());
    EXPECT_TRUE(QFile::exists(paths.legacyServicePlistURLs()[0]));
}

const QString verificationFailed =
    "The API key could not be verified in Keychain. The existing service was left unchanged.";

INSTANTIATE_TEST_SUITE_P(
    Rows, MigrationKeyFailure,
    testing::Values(UntouchedRow{"StoreReadsBackADifferentKey", "api_key = \"k1\"\n",
                                 [](InMemoryCredentialStore& s) { s.loadOverride = "k2"; },
                                 verificationFailed},
                    UntouchedRow{"KeyWithSpacesInsideTheQuotesIsStoredTrimmed",
                                 "api_key = \"  k1  \"\n", [](InMemoryCredentialStore&) {},
                                 verificationFailed},
                    UntouchedRow{"QuotedSpacesAreRejectedByTheStore", "api_key = \"   \"\n",
                                 [](InMemoryCredentialStore&) {}, "The API key is empty."},
                    UntouchedRow{"StoreFailsToSave", "api_key = \"k1\"\n",
                                 [](InMemoryCredentialStore& s) { s.failSave = -25308; },
                                 "Keychain operation failed with status -25308."},
                    UntouchedRow{"StoreFailsToLoad", "api_key = \"k1\"\n",
                                 [](InMemoryCredentialStore& s) { s.failLoad = -128; },
                                 "Keychain operation failed with status -128."}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace

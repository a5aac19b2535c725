#include "system/LegacyTrackerMigration.h"

#include "SystemTestFiles.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/InMemoryCredentialStore.h"
#include "system/SystemCommandRunning.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace SystemTestFiles;

namespace {

const QString launchctl = "/usr/libexec/vantrel/vantrel-launchctl";
const QString firstTarget = "gui/501/com.vantrel.tracker";
const QString secondTarget = "gui/501/com.vantrel.quillon-tracker";

// A launchctl answering from a script: "print" plays the statuses queued for its target, then
// reports the service as unknown (113); "bootout" fails as for a service already gone.
struct ScriptedLaunchctl : SystemCommandRunning {
    QCoro::Task<SystemCommandResult> run(QString executable, QStringList arguments) override {
        EXPECT_EQ(executable, launchctl);
        calls.append(arguments.join(' '));
        QList<qint32>& queued = printStatuses[arguments.value(1)];
        const bool bootout = arguments.value(0) == "bootout";
        co_return SystemCommandResult{bootout            ? 5
                                      : queued.isEmpty() ? 113
                                                         : queued.takeFirst(),
                                      {},
                                      {}};
    }

    QStringList calls;
    QHash<QString, QList<qint32>> printStatuses;
};

class MigrationTest : public testing::Test {
protected:
    LegacyMigrationResult migrate() { return AsyncTest::run(subject.migrateIfNeeded()); }
    QString failure() { return AsyncTest::errorText(subject.migrateIfNeeded()); }
    QString plist(int index) const { return paths.legacyServicePlistURLs()[index]; }

    QTemporaryDir m_home;
    TrackerRuntimePaths paths{m_home.path()};
    InMemoryCredentialStore m_credentials;
    ScriptedLaunchctl m_commands;
    FakeSleeper m_sleeper;
    LegacyTrackerMigration subject{paths, m_credentials, m_commands, m_sleeper, launchctl, 501, 20};
};

// A key that does not read back from the store leaves the file and the services as they were.
// A service still loaded after every check is named, and the migration stops there; the key
// already safe in the store stays imported.
TEST_F(MigrationTest, ImportsAVerifiedKeyStopsBothServicesInOrderAndNamesOneThatStaysLoaded) {
    write(paths.configURL(), "api_key = \"k1\"\n[tracker]\nlevel = 2\n");
    write(plist(1), "<plist/>");
    m_credentials.loadOverride = "k2";
    const auto untouched = identity(paths.configURL());
    EXPECT_EQ(failure(),
              "The API key could not be verified in Keychain. The existing service was left "
              "unchanged.");
    EXPECT_EQ(identity(paths.configURL()), untouched);
    EXPECT_TRUE(m_commands.calls.isEmpty());
    EXPECT_TRUE(QFile::exists(plist(1)));

    m_credentials.loadOverride.reset();
    m_commands.printStatuses[firstTarget] = {0};
    EXPECT_EQ(migrate(), (LegacyMigrationResult{true, 1}));
    EXPECT_EQ(m_credentials.stored, "k1");
    EXPECT_EQ(read(paths.configURL()), "api_key = \"\"\n[tracker]\nlevel = 2\n");
    EXPECT_EQ(m_commands.calls,
              QStringList({"bootout " + firstTarget, "print " + firstTarget, "print " + firstTarget,
                           "bootout " + secondTarget, "print " + secondTarget}));
    EXPECT_EQ(m_sleeper.requested, QList<double>({0.1}));
    EXPECT_FALSE(QFile::exists(plist(1)));

    write(paths.configURL(), "api_key = \"k2\"\n");
    m_commands.calls.clear();
    m_commands.printStatuses[firstTarget] = QList<qint32>(20, 0);
    EXPECT_EQ(failure(), "The legacy tracker service com.vantrel.tracker is still running.");
    EXPECT_EQ(m_commands.calls.count("print " + firstTarget), 20);
    EXPECT_FALSE(m_commands.calls.contains("bootout " + secondTarget));
    EXPECT_EQ(m_credentials.stored, "k2");
    EXPECT_EQ(read(paths.configURL()), "api_key = \"\"\n");
}

TEST_F(MigrationTest, WithoutAKeyOnlyTheServicesAreRemovedAndNoFileIsCreatedOrRewritten) {
    write(plist(0), "<plist/>");
    write(plist(1), "<plist/>");
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 2}));
    EXPECT_FALSE(QFile::exists(plist(0)) || QFile::exists(plist(1)));
    EXPECT_FALSE(QFile::exists(paths.dataDirectoryURL()));

    write(paths.configURL(), "api_key = \"\"\n");
    const auto before = identity(paths.configURL());
    EXPECT_EQ(migrate(), (LegacyMigrationResult{false, 0}));
    EXPECT_EQ(identity(paths.configURL()), before);
    EXPECT_EQ(m_credentials.saveCount, 0);
}

} // namespace

#include "SystemTestFiles.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace SystemTestFiles;

namespace {

struct Outcome {
    int exitStatus = -1;
    QString standardOutput;
    QString standardError;
};

// Runs vantrel-launchctl in a throwaway session: its own HOME and runtime folder, no session bus,
// and PATH limited to `path`, so no systemd of this machine can answer.
class LaunchctlSubstituteTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(fakeBin()));
        ASSERT_TRUE(QDir().mkpath(emptyBin()));
        ASSERT_TRUE(QDir().mkpath(m_root.filePath("runtime")));
    }

    QString fakeBin() const { return m_root.filePath("fake-bin"); }
    QString emptyBin() const { return m_root.filePath("empty-bin"); }
    QString log() const { return m_root.filePath("systemctl.log"); }
    QString target(const QString& label) const {
        return "gui/" + QString::number(::getuid()) + "/" + label;
    }

    Outcome launchctl(const QStringList& arguments, const QString& path,
                      const QHash<QString, QString>& extra = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("DBUS_SESSION_BUS_ADDRESS");
        environment.insert("HOME", m_root.path());
        environment.insert("XDG_RUNTIME_DIR", m_root.filePath("runtime"));
        environment.insert("PATH", path);
        environment.insert("FAKE_SYSTEMCTL_LOG", log());
        for (auto it = extra.cbegin(); it != extra.cend(); ++it) {
            environment.insert(it.key(), it.value());
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(VANTREL_LAUNCHCTL, arguments);
        EXPECT_TRUE(process.waitForFinished(30000));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // A systemctl that records its arguments and answers "show" from the environment.
    void installFakeSystemctl() {
        const QString script = fakeBin() + "/systemctl";
        write(script, "#!/bin/sh\n"
                      "echo \"$*\" >> \"$FAKE_SYSTEMCTL_LOG\"\n"
                      "case \"$2\" in\n"
                      "  show) printf 'LoadState=%s\\nActiveState=%s\\nSubState=running\\n"
                      "MainPID=4242\\nFragmentPath=/u/x.service\\n' \"${FAKE_LOAD_STATE:-loaded}\" "
                      "\"${FAKE_ACTIVE_STATE:-inactive}\" ;;\n"
                      "  stop) exit \"${FAKE_STOP_STATUS:-0}\" ;;\n"
                      "esac\n"
                      "exit 0\n");
        ASSERT_TRUE(
            QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    QStringList systemctlCalls() const {
        if (!QFile::exists(log())) {
            return {};
        }
        return QString::fromUtf8(read(log())).split('\n', Qt::SkipEmptyParts);
    }

    QTemporaryDir m_root;
};

TEST_F(LaunchctlSubstituteTest, WithoutAUserManagerPrintReportsTheServiceAsAbsent) {
    const Outcome run = launchctl({"print", target("com.vantrel.tracker")}, "/usr/bin:/bin");
    EXPECT_EQ(run.exitStatus, 113);
    EXPECT_TRUE(run.standardError.contains("Could not find service \"com.vantrel.tracker\""));
}

TEST_F(LaunchctlSubstituteTest, WithoutAUserManagerBootoutFailsHarmlessly) {
    const Outcome run = launchctl({"bootout", target("com.vantrel.tracker")}, "/usr/bin:/bin");
    EXPECT_NE(run.exitStatus, 0);
}

TEST_F(LaunchctlSubstituteTest, WithoutSystemctlPrintReportsAbsentAndBootoutFails) {
    EXPECT_EQ(launchctl({"print", target("com.vantrel.tracker")}, emptyBin()).exitStatus, 113);
    const Outcome bootout = launchctl({"bootout", target("com.vantrel.tracker")}, emptyBin());
    EXPECT_EQ(bootout.exitStatus, 1);
    EXPECT_TRUE(bootout.standardError.contains("systemctl was not found"));
}

TEST_F(LaunchctlSubstituteTest, BootoutDisablesThenQueuesTheStopOfTheLabelsUserUnit) {
    installFakeSystemctl();
    const Outcome run = launchctl({"bootout", target("com.vantrel.quillon-tracker")},
                                  fakeBin() + ":/usr/bin:/bin", {{"FAKE_STOP_STATUS", "5"}});
    EXPECT_EQ(run.exitStatus, 5);
    EXPECT_EQ(systemctlCalls(),
              QStringList({"--user disable --quiet com.vantrel.quillon-tracker.service",
                           "--user stop --no-block com.vantrel.quillon-tracker.service"}));
}

struct UnitStateRow {
    const char* name;
    const char* loadState;
    const char* activeState;
    int expectedExit;
};

class LaunchctlSubstitutePrint : public LaunchctlSubstituteTest,
                                 public testing::WithParamInterface<UnitStateRow> {};

TEST_P(LaunchctlSubstitutePrint, CountsOnlyARunningOrStoppingUnitAsLoaded) {
    installFakeSystemctl();
    const UnitStateRow& row = GetParam();
    const Outcome run =
        launchctl({"print", target("com.vantrel.tracker")}, fakeBin() + ":/usr/bin:/bin",
                  {{"FAKE_LOAD_STATE", row.loadState}, {"FAKE_ACTIVE_STATE", row.activeState}});
    EXPECT_EQ(run.exitStatus, row.expectedExit);
    EXPECT_EQ(run.standardOutput.contains("unit = com.vantrel.tracker.service"),
              row.expectedExit == 0);
    EXPECT_TRUE(systemctlCalls().value(0).endsWith(" com.vantrel.tracker.service"));
}

INSTANTIATE_TEST_SUITE_P(Rows, LaunchctlSubstitutePrint,
                         testing::Values(UnitStateRow{"Active", "loaded", "active", 0},
                                         UnitStateRow{"Activating", "loaded", "activating", 0},
                                         UnitStateRow{"Deactivating", "loaded", "deactivating", 0},
                                         UnitStateRow{"Reloading", "loaded", "reloading", 0},
                                         UnitStateRow{"Inactive", "loaded", "inactive", 113},
                                         UnitStateRow{"Failed", "loaded", "failed", 113},
                                         UnitStateRow{"UnknownUnit", "not-found", "inactive", 113}),
                         [](const auto& row) { return std::string(row.param.name); });

struct RejectedRow {
    const char* name;
    QStringList arguments;
    int expectedExit;
};

class LaunchctlSubstituteRejects : public LaunchctlSubstituteTest,
                                   public testing::WithParamInterface<RejectedRow> {};

TEST_P(LaunchctlSubstituteRejects, AsksSystemdNothing) {
    installFakeSystemctl();
    QStringList arguments = GetParam().arguments;
    arguments.replaceInStrings("<uid>", QString::number(::getuid()));
    const Outcome run =
        launchctl(arguments, fakeBin() + ":/usr/bin:/bin", {{"FAKE_ACTIVE_STATE", "active"}});
    EXPECT_EQ(run.exitStatus, GetParam().expectedExit);
    EXPECT_EQ(systemctlCalls(), QStringList());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LaunchctlSubstituteRejects,
    testing::Values(
        RejectedRow{"NoArguments", {}, 64},
        RejectedRow{"UnknownCommand", {"kickstart", "gui/<uid>/com.vantrel.tracker"}, 64},
        RejectedRow{"OtherDomain", {"print", "system/com.vantrel.tracker"}, 64},
        RejectedRow{"LabelWithASpace", {"print", "gui/<uid>/a b"}, 64},
        RejectedRow{"LabelWithAPath", {"bootout", "gui/<uid>/../x"}, 64},
        RejectedRow{"EmptyLabel", {"print", "gui/<uid>/"}, 64},
        RejectedRow{"LabelThatLooksLikeAnOption", {"bootout", "gui/<uid>/-h"}, 64},
        RejectedRow{"ExtraArgument", {"print", "gui/<uid>/a", "b"}, 64},
        RejectedRow{"AnotherUsersSession", {"print", "gui/4294967290/com.vantrel.tracker"}, 1}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace

#include "SystemTestFiles.h"
#include "support/AsyncTest.h"
#include "system/QProcessSystemCommandRunner.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace SystemTestFiles;

namespace {

const QString tracker = "com.vantrel.tracker";

// Runs vantrel-launchctl in a throwaway session: its own HOME and runtime folder, no session bus,
// and a PATH of our choosing, so no systemd of this machine can answer. fakePath() puts first a
// systemctl that records its arguments and answers "show" from the environment; the root folder
// holds no systemctl.
class LaunchctlSubstituteTest : public testing::Test {
protected:
    void SetUp() override {
        const QString script = m_root.filePath("fake-bin/systemctl");
        write(script, "#!/bin/sh\necho \"$*\" >> \"$0.log\"\n"
                      "[ \"$2\" = show ] && printf 'LoadState=%s\\nActiveState=%s\\n' "
                      "\"${FAKE_LOAD_STATE:-loaded}\" \"${FAKE_ACTIVE_STATE:-inactive}\"\n"
                      "[ \"$2\" = stop ] && exit \"${FAKE_STOP_STATUS:-0}\"\nexit 0\n");
        ASSERT_TRUE(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
    }

    QString fakePath() const { return m_root.filePath("fake-bin") + ":/usr/bin:/bin"; }
    static QString target(const QString& label) {
        return "gui/" + QString::number(::getuid()) + "/" + label;
    }

    // Through the command runner the application uses, with a clean environment set by env(1).
    SystemCommandResult launchctl(const QStringList& arguments, const QString& path,
                                  const QStringList& environment = {}) {
        QProcessSystemCommandRunner runner;
        return AsyncTest::run(runner.run(
            "/usr/bin/env", QStringList{"-u", "DBUS_SESSION_BUS_ADDRESS", "HOME=" + m_root.path(),
                                        "XDG_RUNTIME_DIR=" + m_root.path(), "PATH=" + path} +
                                environment + QStringList{VANTREL_LAUNCHCTL} + arguments));
    }

    QStringList systemctlCalls() const {
        QFile log(m_root.filePath("fake-bin/systemctl.log"));
        return log.open(QIODevice::ReadOnly)
                   ? QString(log.readAll()).split('\n', Qt::SkipEmptyParts)
                   : QStringList();
    }

    QTemporaryDir m_root;
};

TEST_F(LaunchctlSubstituteTest, WithoutSystemdPrintReportsTheServiceAsAbsentAndBootoutIsHarmless) {
    // First the real systemctl with no user manager to reach, then no systemctl at all.
    for (const QString& path : {QString("/usr/bin:/bin"), m_root.path()}) {
        const SystemCommandResult print = launchctl({"print", target(tracker)}, path);
        EXPECT_EQ(print.exitStatus, 113) << path.toStdString();
        EXPECT_TRUE(print.standardError.contains("Could not find service \"" + tracker + "\""));
        EXPECT_NE(launchctl({"bootout", target(tracker)}, path).exitStatus, 0);
    }
}

TEST_F(LaunchctlSubstituteTest, BootoutDisablesThenQueuesTheStopOfTheLabelsUserUnit) {
    const SystemCommandResult run = launchctl({"bootout", target("com.vantrel.quillon-tracker")},
                                              fakePath(), {"FAKE_STOP_STATUS=5"});
    EXPECT_EQ(run.exitStatus, 5);
    EXPECT_EQ(systemctlCalls(),
              QStringList({"--user disable --quiet com.vantrel.quillon-tracker.service",
                           "--user stop --no-block com.vantrel.quillon-tracker.service"}));
}

// Either the environment for the recording systemctl or the arguments, with the exit expected.
struct Row {
    const char* name;
    QStringList strings;
    int expectedExit;
};

class LaunchctlSubstituteRows : public LaunchctlSubstituteTest,
                                public testing::WithParamInterface<Row> {};
class LaunchctlSubstitutePrint : public LaunchctlSubstituteRows {};
class LaunchctlSubstituteRejects : public LaunchctlSubstituteRows {};

TEST_P(LaunchctlSubstitutePrint, CountsOnlyARunningOrStoppingUnitAsLoaded) {
    const Row& row = GetParam();
    const SystemCommandResult run = launchctl({"print", target(tracker)}, fakePath(), row.strings);
    EXPECT_EQ(run.exitStatus, row.expectedExit);
    EXPECT_EQ(run.standardOutput.contains("unit = com.vantrel.tracker.service"),
              row.expectedExit == 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, LaunchctlSubstitutePrint,
                         testing::Values(Row{"Active", {"FAKE_ACTIVE_STATE=active"}, 0},
                                         Row{"Inactive", {"FAKE_ACTIVE_STATE=inactive"}, 113},
                                         Row{"UnknownUnit", {"FAKE_LOAD_STATE=not-found"}, 113}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(LaunchctlSubstituteRejects, AsksSystemdNothing) {
    const QStringList arguments =
        QStringList(GetParam().strings).replaceInStrings("<uid>", QString::number(::getuid()));
    EXPECT_EQ(launchctl(arguments, fakePath(), {"FAKE_ACTIVE_STATE=active"}).exitStatus,
              GetParam().expectedExit);
    EXPECT_EQ(systemctlCalls(), QStringList());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LaunchctlSubstituteRejects,
    testing::Values(Row{"NoArguments", {}, 64},
                    Row{"OtherDomain", {"print", "system/com.vantrel.tracker"}, 64},
                    Row{"LabelWithAPath", {"bootout", "gui/<uid>/../x"}, 64},
                    Row{"LabelThatLooksLikeAnOption", {"bootout", "gui/<uid>/-h"}, 64},
                    Row{"AnotherUsersSession", {"print", "gui/4294967290/com.vantrel.tracker"}, 1}),
    [](const auto& row) { return std::string(row.param.name); });

} // namespace

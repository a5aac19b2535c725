#include "SystemTestFiles.h"
#include "support/AsyncTest.h"
#include "support/TableRows.h"
#include "system/QProcessSystemCommandRunner.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <unistd.h>

using namespace SystemTestFiles;

namespace {

using ::PrintTo;

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

// The arguments (where <uid> stands for ours), the environment for the recording systemctl, the
// exit expected and the systemctl calls made; a print that exits 0 describes the unit.
struct Row {
    const char* name;
    QStringList arguments;
    QStringList environment;
    int expectedExit;
    QStringList expectedCalls;
};

class LaunchctlSubstituteRows : public LaunchctlSubstituteTest,
                                public testing::WithParamInterface<Row> {};

TEST_P(LaunchctlSubstituteRows, AnswersFromTheLabelsUserUnitOrAsksNothing) {
    const Row& row = GetParam();
    const SystemCommandResult run =
        launchctl(QStringList(row.arguments).replaceInStrings("<uid>", QString::number(::getuid())),
                  fakePath(), row.environment);
    EXPECT_EQ(run.exitStatus, row.expectedExit);
    EXPECT_EQ(systemctlCalls(), row.expectedCalls);
    EXPECT_EQ(run.standardOutput.contains("unit = com.vantrel.tracker.service"),
              row.expectedExit == 0);
}

const QStringList print{"print", "gui/<uid>/com.vantrel.tracker"};
const QStringList show{"--user show --property=LoadState,ActiveState,SubState,MainPID,FragmentPath "
                       "com.vantrel.tracker.service"};

// Only a running or stopping unit counts as loaded; bootout disables, then queues the stop.
INSTANTIATE_TEST_SUITE_P(
    Rows, LaunchctlSubstituteRows,
    testing::Values(
        Row{"PrintActive", print, {"FAKE_ACTIVE_STATE=active"}, 0, show},
        Row{"PrintInactive", print, {"FAKE_ACTIVE_STATE=inactive"}, 113, show},
        Row{"PrintUnknownUnit", print, {"FAKE_LOAD_STATE=not-found"}, 113, show},
        Row{"Bootout",
            {"bootout", "gui/<uid>/com.vantrel.quillon-tracker"},
            {"FAKE_STOP_STATUS=5"},
            5,
            {"--user disable --quiet com.vantrel.quillon-tracker.service",
             "--user stop --no-block com.vantrel.quillon-tracker.service"}},
        Row{"NoArguments", {}, {}, 64, {}},
        Row{"OtherDomain", {"print", "system/com.vantrel.tracker"}, {}, 64, {}},
        Row{"LabelWithAPath", {"bootout", "gui/<uid>/../x"}, {}, 64, {}},
        Row{"LabelThatLooksLikeAnOption", {"bootout", "gui/<uid>/-h"}, {}, 64, {}},
        Row{"AnotherUsersSession", {"print", "gui/4294967290/com.vantrel.tracker"}, {}, 1, {}}),
    rowName);

} // namespace

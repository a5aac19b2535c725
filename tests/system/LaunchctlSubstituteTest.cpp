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

// The arguments (where <uid> stands for ours), the environment for the recording systemctl, the
// exit expected and the systemctl calls made; a print that exits 0 describes the unit, and one
// that exits 113 says it found none. Without the recording systemctl, the real one finds no user
// manager to ask, and the root folder holds no systemctl at all.
struct Row {
    const char* name;
    QStringList arguments;
    QStringList environment;
    int expectedExit;
    QStringList expectedCalls;
    const char* path = "<root>/fake-bin:/usr/bin:/bin";
};

class LaunchctlSubstitute : public testing::TestWithParam<Row> {};

// Runs vantrel-launchctl through the command runner the application uses, in a throwaway session:
// its own HOME and runtime folder, no session bus, and a PATH of our choosing, so no systemd of
// this machine can answer. The recording systemctl logs its arguments and answers "show" from
// the environment.
TEST_P(LaunchctlSubstitute, AnswersFromTheLabelsUserUnitOrAsksNothing) {
    const Row& row = GetParam();
    const QTemporaryDir root;
    const QString script = root.filePath("fake-bin/systemctl");
    write(script, "#!/bin/sh\necho \"$*\" >> \"$0.log\"\n"
                  "[ \"$2\" = show ] && printf 'LoadState=%s\\nActiveState=%s\\n' "
                  "\"${FAKE_LOAD_STATE:-loaded}\" \"${FAKE_ACTIVE_STATE:-inactive}\"\n"
                  "[ \"$2\" = stop ] && exit \"${FAKE_STOP_STATUS:-0}\"\nexit 0\n");
    ASSERT_TRUE(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
    const QStringList session{"-u", "DBUS_SESSION_BUS_ADDRESS", "HOME=" + root.path(),
                              "XDG_RUNTIME_DIR=" + root.path(),
                              "PATH=" + QString(row.path).replace("<root>", root.path())};
    const SystemCommandResult run = AsyncTest::run(QProcessSystemCommandRunner().run(
        "/usr/bin/env",
        session + row.environment + QStringList{VANTREL_LAUNCHCTL} +
            QStringList(row.arguments).replaceInStrings("<uid>", QString::number(::getuid()))));
    EXPECT_EQ(run.exitStatus, row.expectedExit);
    EXPECT_EQ(QString(read(script + ".log")).split('\n', Qt::SkipEmptyParts), row.expectedCalls);
    EXPECT_EQ(run.standardOutput.contains("unit = com.vantrel.tracker.service"),
              row.expectedExit == 0);
    EXPECT_EQ(run.standardError.contains("Could not find service \"com.vantrel.tracker\""),
              row.expectedExit == 113)
        << run.standardError.toStdString();
}

const QStringList print{"print", "gui/<uid>/com.vantrel.tracker"};
const QStringList bootout{"bootout", "gui/<uid>/com.vantrel.tracker"};
const QStringList show{"--user show --property=LoadState,ActiveState,SubState,MainPID,FragmentPath "
                       "com.vantrel.tracker.service"};

// Only a running or stopping unit counts as loaded; bootout disables, then queues the stop.
INSTANTIATE_TEST_SUITE_P(
    Rows, LaunchctlSubstitute,
    testing::Values(
        Row{"PrintActive", print, {"FAKE_ACTIVE_STATE=active"}, 0, show},
        Row{"PrintInactive", print, {"FAKE_ACTIVE_STATE=inactive"}, 113, show},
        Row{"PrintUnknownUnit", print, {"FAKE_LOAD_STATE=not-found"}, 113, show},
        Row{"PrintWithoutAUserManager", print, {}, 113, {}, "/usr/bin:/bin"},
        Row{"BootoutWithoutAUserManager", bootout, {}, 1, {}, "/usr/bin:/bin"},
        Row{"PrintWithoutSystemctl", print, {}, 113, {}, "<root>"},
        Row{"BootoutWithoutSystemctl", bootout, {}, 1, {}, "<root>"},
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

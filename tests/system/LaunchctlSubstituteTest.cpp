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

const QString tracker = "com.vantrel.tracker";

// Runs vantrel-launchctl in a throwaway session: its own HOME and runtime folder, no session bus,
// and a PATH of our choosing, so no systemd of this machine can answer. fakePath() puts first a
// systemctl that records its arguments and answers "show" from the environment.
class LaunchctlSubstituteTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(m_root.filePath("runtime")));
        ASSERT_TRUE(QDir().mkpath(m_root.filePath("empty-bin")));
        const QString script = m_root.filePath("fake-bin/systemctl");
        write(script, "#!/bin/sh\n"
                      "echo \"$*\" >> \"$FAKE_SYSTEMCTL_LOG\"\n"
                      "case \"$2\" in\n"
                      "  show) printf 'LoadState=%s\\nActiveState=%s\\nSubState=running\\n"
                      "MainPID=4242\\nFragmentPath=/u/x.service\\n' \"${FAKE_LOAD_STATE:-loaded}\" "
                      "\"${FAKE_ACTIVE_STATE:-inactive}\" ;;\n"
                      "  stop) exit \"${FAKE_STOP_STATUS:-0}\" ;;\n"
                      "esac\n");
        ASSERT_TRUE(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
    }

    QString fakePath() const { return m_root.filePath("fake-bin") + ":/usr/bin:/bin"; }
    static QString target(const QString& label) {
        return "gui/" + QString::number(::getuid()) + "/" + label;
    }

    Outcome launchctl(const QStringList& arguments, const QString& path,
                      const QHash<QString, QString>& extra = {}) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("DBUS_SESSION_BUS_ADDRESS");
        environment.insert("HOME", m_root.path());
        environment.insert("XDG_RUNTIME_DIR", m_root.filePath("runtime"));
        environment.insert("PATH", path);
        environment.insert("FAKE_SYSTEMCTL_LOG", m_root.filePath("systemctl.log"));
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

    QStringList systemctlCalls() const {
        QFile log(m_root.filePath("systemctl.log"));
        return log.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts)
                   : QStringList();
    }

    QTemporaryDir m_root;
};

TEST_F(LaunchctlSubstituteTest, WithoutSystemdPrintReportsTheServiceAsAbsentAndBootoutIsHarmless) {
    // First the real systemctl with no user manager to reach, then no systemctl at all.
    for (const QString& path : {QString("/usr/bin:/bin"), m_root.filePath("empty-bin")}) {
        SCOPED_TRACE(path.toStdString());
        const Outcome print = launchctl({"print", target(tracker)}, path);
        EXPECT_EQ(print.exitStatus, 113);
        EXPECT_TRUE(print.standardError.contains("Could not find service \"" + tracker + "\""));
        EXPECT_NE(launchctl({"bootout", target(tracker)}, path).exitStatus, 0);
    }
    EXPECT_TRUE(launchctl({"bootout", target(tracker)}, m_root.filePath("empty-bin"))
                    .standardError.contains("systemctl was not found"));
}

TEST_F(LaunchctlSubstituteTest, BootoutDisablesThenQueuesTheStopOfTheLabelsUserUnit) {
    const Outcome run = launchctl({"bootout", target("com.vantrel.quillon-tracker")}, fakePath(),
                                  {{"FAKE_STOP_STATUS", "5"}});
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
    const UnitStateRow& row = GetParam();
    const Outcome run =
        launchctl({"print", target(tracker)}, fakePath(),
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
    const QStringList arguments =
        QStringList(GetParam().arguments).replaceInStrings("<uid>", QString::number(::getuid()));
    EXPECT_EQ(launchctl(arguments, fakePath(), {{"FAKE_ACTIVE_STATE", "active"}}).exitStatus,
              GetParam().expectedExit);
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

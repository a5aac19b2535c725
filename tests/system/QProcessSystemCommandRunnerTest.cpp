#include "system/QProcessSystemCommandRunner.h"

#include "app/PlatformError.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

SystemCommandResult shell(const QString& script) {
    return QProcessSystemCommandRunner().run("/bin/sh", {"-c", script});
}

TEST(QProcessSystemCommandRunner, ReturnsTheExitStatusAndBothStreamsSeparately) {
    const SystemCommandResult result = shell("echo out; echo err >&2; echo 'ü' ; exit 3");
    EXPECT_EQ(result, (SystemCommandResult{3, "out\nü\n", "err\n"}));
}

TEST(QProcessSystemCommandRunner, PassesArgumentsUntouchedWithoutAShell) {
    const SystemCommandResult result =
        QProcessSystemCommandRunner().run("/usr/bin/printf", {"%s|", "a b", "$HOME", "*", ""});
    EXPECT_EQ(result.standardOutput, "a b|$HOME|*||");
}

TEST(QProcessSystemCommandRunner, LargeOutputOnBothStreamsCannotStallTheCommand) {
    // Each stream gets far more than a pipe holds, standard error only after standard output:
    // a runner that read one stream at a time would deadlock here.
    QElapsedTimer timer;
    timer.start();
    const SystemCommandResult result =
        shell("head -c 3000000 /dev/zero | tr '\\0' o; head -c 2000000 /dev/zero | tr '\\0' e >&2;"
              "head -c 1000000 /dev/zero | tr '\\0' o");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.standardOutput, QString(4000000, 'o'));
    EXPECT_EQ(result.standardError, QString(2000000, 'e'));
    EXPECT_LT(timer.elapsed(), 30000);
}

TEST(QProcessSystemCommandRunner, OutputThatIsNotUtf8BecomesEmpty) {
    const SystemCommandResult result = shell("printf 'ok\\377'; printf 'fine' >&2");
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError, "fine");
}

TEST(QProcessSystemCommandRunner, CommandEndedByASignalReportsTheSignal) {
    EXPECT_EQ(shell("kill -TERM $$").exitStatus, 15);
}

TEST(QProcessSystemCommandRunner, ReturnsWhenTheCommandExitsEvenIfABackgroundChildKeepsItsOutput) {
    QElapsedTimer timer;
    timer.start();
    const SystemCommandResult result = shell("sleep 10 & echo started");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_LT(timer.elapsed(), 8000);
}

struct StartFailureRow {
    const char* name;
    QString executable;
};

class QProcessSystemCommandRunnerStart : public testing::TestWithParam<StartFailureRow> {};

TEST_P(QProcessSystemCommandRunnerStart, CommandThatCannotStartIsAnErrorNamingIt) {
    QTemporaryDir directory;
    QFile plain(directory.filePath("not-executable"));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.write("#!/bin/sh\nexit 0\n");
    plain.close();

    const QString executable = QString(GetParam().executable).replace("<dir>", directory.path());
    try {
        QProcessSystemCommandRunner().run(executable, {"print", "gui/0/x"});
        ADD_FAILURE() << "expected a PlatformError";
    } catch (const PlatformError& error) {
        EXPECT_TRUE(error.description().startsWith("Could not start " + executable + ": "))
            << error.description().toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, QProcessSystemCommandRunnerStart,
                         testing::Values(StartFailureRow{"Missing", "<dir>/missing"},
                                         StartFailureRow{"NotExecutable", "<dir>/not-executable"},
                                         StartFailureRow{"Directory", "<dir>"}),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace

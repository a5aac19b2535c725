#include "system/QProcessSystemCommandRunner.h"

#include "core/PlatformError.h"
#include "support/AsyncTest.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace {

SystemCommandResult
run(const QString& executable, const QStringList& arguments,
    std::chrono::milliseconds bound = QProcessSystemCommandRunner::defaultBound) {
    QProcessSystemCommandRunner runner(bound);
    return AsyncTest::run(runner.run(executable, arguments));
}

struct CommandRow {
    const char* name;
    QString executable;
    QStringList arguments;
    SystemCommandResult expected;
};

class QProcessSystemCommandRunnerResult : public testing::TestWithParam<CommandRow> {};

TEST_P(QProcessSystemCommandRunnerResult, ReportsStatusAndEachStream) {
    const CommandRow& row = GetParam();
    EXPECT_EQ(run(row.executable, row.arguments), row.expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, QProcessSystemCommandRunnerResult,
                         testing::Values(CommandRow{"StreamsStaySeparate",
                                                    "/bin/sh",
                                                    {"-c",
                                                     "echo out; echo err >&2; echo 'ü'; exit 3"},
                                                    {3, "out\nü\n", "err\n"}},
                                         CommandRow{"ArgumentsPassUntouchedWithoutAShell",
                                                    "/usr/bin/printf",
                                                    {"%s|", "a b", "$HOME", "*", ""},
                                                    {0, "a b|$HOME|*||", ""}}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(QProcessSystemCommandRunner, LargeOutputOnBothStreamsCannotStallTheCommand) {
    // Each stream gets far more than a pipe holds, standard error only after standard output:
    // a runner that read one stream at a time would deadlock here.
    const SystemCommandResult result =
        run("/bin/sh", {"-c", "head -c 3000000 /dev/zero | tr '\\0' o; "
                              "head -c 2000000 /dev/zero | tr '\\0' e >&2; "
                              "head -c 1000000 /dev/zero | tr '\\0' o"});
    EXPECT_EQ(result, (SystemCommandResult{0, QString(4000000, 'o'), QString(2000000, 'e')}));
}

TEST(QProcessSystemCommandRunner, ReturnsWhenTheCommandExitsEvenIfABackgroundChildKeepsItsOutput) {
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(run("/bin/sh", {"-c", "sleep 10 & echo started"}).exitStatus, 0);
    EXPECT_LT(timer.elapsed(), 8000);
}

TEST(QProcessSystemCommandRunner, CommandThatCannotStartIsAnErrorNamingIt) {
    // Missing, not executable, a folder. Each is known at once: start-up waits on these.
    QProcessSystemCommandRunner runner;
    for (const QString executable : {"/nonexistent/launchctl", "/etc/passwd", "/etc"}) {
        try {
            AsyncTest::run(runner.run(executable, {"print", "gui/0/x"}), std::chrono::seconds(5));
            ADD_FAILURE() << "expected a PlatformError for " << executable.toStdString();
        } catch (const PlatformError& error) {
            EXPECT_TRUE(error.description().startsWith("Could not start " + executable + ": "))
                << error.description().toStdString();
        }
    }
}

TEST(QProcessSystemCommandRunner, ACommandPastItsBoundIsStoppedAndNamed) {
    try {
        run("/bin/sleep", {"30"}, std::chrono::milliseconds(200));
        ADD_FAILURE() << "expected a PlatformError";
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.description(), "/bin/sleep did not finish within 0.2 seconds and was "
                                       "stopped.");
    }
}

} // namespace

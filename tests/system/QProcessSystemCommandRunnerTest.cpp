#include "system/QProcessSystemCommandRunner.h"

#include "support/AsyncTest.h"
#include "support/TableRows.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using ::PrintTo;

struct CommandRow {
    const char* name;
    QString executable;
    QStringList arguments;
    SystemCommandResult expected;
};

class QProcessSystemCommandRunnerResult : public testing::TestWithParam<CommandRow> {};

TEST_P(QProcessSystemCommandRunnerResult, ReportsStatusAndEachStream) {
    const CommandRow& row = GetParam();
    EXPECT_EQ(AsyncTest::run(QProcessSystemCommandRunner().run(row.executable, row.arguments)),
              row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, QProcessSystemCommandRunnerResult,
    testing::Values(CommandRow{"StreamsStaySeparate",
                               "/bin/sh",
                               {"-c", "echo out; echo err >&2; echo 'ü'; exit 3"},
                               {3, "out\nü\n", "err\n"}},
                    CommandRow{"ArgumentsPassUntouchedWithoutAShell",
                               "/usr/bin/printf",
                               {"%s|", "a b", "$HOME", "*", ""},
                               {0, "a b|$HOME|*||", ""}},
                    // Each stream gets far more than a pipe holds, standard error only after
                    // standard output: a runner that read one stream at a time would deadlock here.
                    CommandRow{"LargeOutputOnBothStreamsCannotStallTheCommand",
                               "/bin/sh",
                               {"-c", "head -c 3000000 /dev/zero | tr '\\0' o; "
                                      "head -c 2000000 /dev/zero | tr '\\0' e >&2; "
                                      "head -c 1000000 /dev/zero | tr '\\0' o"},
                               {0, QString(4000000, 'o'), QString(2000000, 'e')}}),
    rowName);

TEST(QProcessSystemCommandRunner, ReturnsWhenTheCommandExitsEvenIfABackgroundChildKeepsItsOutput) {
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(
        AsyncTest::run(QProcessSystemCommandRunner().run("/bin/sh", {"-c", "sleep 10 & echo x"}))
            .exitStatus,
        0);
    EXPECT_LT(timer.elapsed(), 8000);
}

TEST(QProcessSystemCommandRunner, ACommandThatCannotStartOrOutlivesItsBoundIsAnErrorNamingIt) {
    // Missing, not executable, a folder: each is known at once, since start-up waits on these.
    for (const QString executable : {"/nonexistent/launchctl", "/etc/passwd", "/etc"}) {
        const QString error =
            AsyncTest::errorText(QProcessSystemCommandRunner().run(executable, {"print"}));
        EXPECT_TRUE(error.startsWith("Could not start " + executable + ": "))
            << error.toStdString();
    }
    EXPECT_EQ(AsyncTest::errorText(QProcessSystemCommandRunner(200ms).run("/bin/sleep", {"30"})),
              "/bin/sleep did not finish within 0.2 seconds and was stopped.");
}

} // namespace

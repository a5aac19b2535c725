#include "system/QProcessSystemCommandRunner.h"

#include "support/AsyncTest.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

// Arguments reach the command untouched, with no shell between. Each stream gets far more than a
// pipe holds, standard error only after standard output: a runner that read one stream at a time
// would deadlock here.
TEST(QProcessSystemCommandRunner, ReportsStatusAndEachStreamOfAChattyCommand) {
    const QString script = "printf '%s|' \"$@\"; echo ü; head -c 3000000 /dev/zero | tr '\\0' o; "
                           "head -c 2000000 /dev/zero | tr '\\0' e >&2; "
                           "head -c 1000000 /dev/zero | tr '\\0' o; exit 3";
    EXPECT_EQ(AsyncTest::run(QProcessSystemCommandRunner().run(
                  "/bin/sh", {"-c", script, "sh", "a b", "$HOME", "*", ""})),
              (SystemCommandResult{3, "a b|$HOME|*||ü\n" + QString(4000000, 'o'),
                                   QString(2000000, 'e')}));
}

// A leftover background child keeps the pipes open, yet the run ends with the command.
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
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(AsyncTest::errorText(
                  QProcessSystemCommandRunner().run("/bin/sh", {"-c", "sleep 10 & echo x"})),
              "");
    EXPECT_LT(timer.elapsed(), 8000);
}

} // namespace

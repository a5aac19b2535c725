#include "tracker/ForkExecTrackerProcessRunner.h"

#include "StatusDocument.h"
#include "support/AsyncTest.h"
#include "support/TableRows.h"
#include "support/TestFiles.h"
#include "tracker/ForkExecTrackerProcessHandle.h"
#include "tracker/TrackerStatusDecodingError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using ::PrintTo;

const QString apiKey = "vk_live_9f3c2a7e41d8";
const QString exited = "Tracker helper exited with status ";

int modeOf(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 0777) : -1;
}

// What a status command comes to: the report's tracker version, or the failure's description.
QCoro::Task<QString> outcomeOf(QCoro::Task<TrackerStatus> task) {
    try {
        co_return "version " + (co_await std::move(task)).trackerVersion;
    } catch (const VantrelError& error) {
        co_return error.description();
    }
}

// Helper scripts may say HOME for the test's throwaway directory.
class RunnerTest : public testing::Test {
protected:
    static constexpr qint64 logRotationSize = 64 * 1024;
    QTemporaryDir home;
    ForkExecTrackerProcessRunner runner{ForkExecTrackerProcessRunner::defaultStatusOutputCeiling,
                                        logRotationSize};
    QList<qint32> exits;
    bool exitsOnGuiThread = true;

    QString path(const QString& relative) const { return home.filePath(relative); }
    void script(QByteArray lines) {
        writeFile(path("config.toml"), lines.replace("HOME", home.path().toUtf8()));
    }
    std::unique_ptr<TrackerProcessHandling> start(const QString& executable = FAKE_TRACKER_HELPER) {
        return runner.startHelper(
            {executable, path("config.toml"), apiKey, "Ada's \"work\" laptop  ",
             path("tracker/stdout.log"), path("tracker/stderr.log")},
            [this](qint32 status) {
                exits.append(status);
                exitsOnGuiThread &= QThread::currentThread() == qApp->thread();
            });
    }
    // Why starting the helper failed, or "" when it started (and has been released).
    QString startFailure(const QString& executable = FAKE_TRACKER_HELPER) {
        try {
            start(executable);
        } catch (const VantrelError& error) {
            return error.description();
        }
        return {};
    }
    QString statusOutcome(const QString& executable = FAKE_TRACKER_HELPER) {
        return AsyncTest::run(outcomeOf(runner.runStatus(executable, path("config.toml"))));
    }
    bool waitForExits(int count) {
        return AsyncTest::waitUntil([&] { return exits.size() >= count; });
    }
    pid_t recordedPid() {
        EXPECT_TRUE(AsyncTest::waitUntil([&] { return QFile::exists(path("pid")); }));
        return static_cast<pid_t>(readFile(path("pid")).toInt());
    }
};

TEST_F(RunnerTest, TheHelperGetsExactlySixArgumentsAndTheKeyOnlyOnItsStandardInput) {
    script("run.read-key\nrun.record HOME\nrun.hang\n");
    const auto previous = std::signal(SIGPIPE, SIG_IGN); // the helper must not inherit this
    auto handle = start();
    std::signal(SIGPIPE, previous);
    const QString proc = "/proc/" + QString::number(recordedPid());

    EXPECT_EQ(readFile(path("argv")).split('\0'),
              (QList<QByteArray>{"--config", path("config.toml").toUtf8(), "run", "--api-key-stdin",
                                 "--device-name", "Ada's \"work\" laptop  ", ""}));
    EXPECT_EQ(readFile(path("key")), apiKey.toUtf8());
    EXPECT_EQ(readFile(path("sigpipe")), "default");
    EXPECT_FALSE(readFile(proc + "/environ").contains(apiKey.toUtf8()));
    EXPECT_TRUE(handle->isRunning());

    handle->terminate();
    ASSERT_TRUE(waitForExits(1));
    AsyncTest::spin(50ms);
    EXPECT_EQ(exits, QList<qint32>{SIGTERM});
    EXPECT_TRUE(exitsOnGuiThread);
    EXPECT_FALSE(handle->isRunning());
    handle->terminate(); // on an ended helper: nothing to do, nothing fails
}

TEST_F(RunnerTest, AKeyLongerThanThePipeHoldsNothingUpWhenTheHelperDoesNotReadIt) {
    script("run.hang\n");
    alarm(10); // a blocked write ends the test here rather than at the suite's timeout
    auto handle =
        runner.startHelper({FAKE_TRACKER_HELPER, path("config.toml"), QString(1024 * 1024, 'k'),
                            "laptop", path("out.log"), path("err.log")},
                           [this](qint32 status) { exits.append(status); });
    alarm(0);
    EXPECT_TRUE(handle->isRunning());
    handle->terminate();
    EXPECT_TRUE(waitForExits(1));
}

TEST_F(RunnerTest, AHelperReapedBySomeoneElseStillEndsWithoutAStatus) {
    script("run.hang\n");
    const auto previous = std::signal(SIGCHLD, SIG_IGN); // the kernel reaps every child itself
    alarm(10);
    auto handle = start();
    handle->terminate();
    EXPECT_TRUE(waitForExits(1));
    alarm(0);
    std::signal(SIGCHLD, previous);
    EXPECT_EQ(exits, QList<qint32>{-1});
}

TEST_F(RunnerTest, ReleasedHelpersEndByThemselvesAndAppendToPrivateBoundedLogs) {
    // Releasing the handle closes standard input; this helper exits when it sees the end.
    script("run.read-key\nrun.stdout out\nrun.stderr err\nrun.wait-stdin-eof\nrun.exit 4\n");
    const auto launch = [&] {
        start().reset();
        return waitForExits(int(exits.size()) + 1);
    };
    const QString out = path("tracker/stdout.log");
    const QString err = path("tracker/stderr.log");
    const mode_t previous = ::umask(0);
    ASSERT_TRUE(launch());
    ASSERT_TRUE(launch());
    EXPECT_EQ(readFile(out), "out\nout\n");
    EXPECT_EQ(readFile(err), "err\nerr\n");
    EXPECT_EQ((QList<int>{modeOf(path("tracker")), modeOf(out), modeOf(err)}),
              (QList<int>{0700, 0600, 0600}));

    // Loosened by someone else, and the output log past the limit: the next launch makes them
    // private again and sets the long log aside in place of the older one.
    writeFile(out + ".1", "oldest");
    writeFile(out, QByteArray(logRotationSize, 'x') + "\n");
    ::chmod(QFile::encodeName(path("tracker")).constData(), 0777);
    ::chmod(QFile::encodeName(out).constData(), 0666);
    ASSERT_TRUE(launch());
    ::umask(previous);
    EXPECT_EQ(readFile(out), "out\n");
    EXPECT_EQ(readFile(out + ".1").size(), logRotationSize + 1);
    EXPECT_EQ(readFile(err), "err\nerr\nerr\n");
    EXPECT_EQ((QList<int>{modeOf(path("tracker")), modeOf(out), modeOf(out + ".1"), modeOf(err)}),
              (QList<int>{0700, 0600, 0600, 0600}));
    EXPECT_EQ(exits, QList<qint32>(3, 4));
}

TEST(ForkExecTrackerProcessHandle, WritingToAPipeWithoutReaderFailsWithoutSigpipe) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ::close(fds[0]);
    const auto previous = std::signal(SIGPIPE, SIG_DFL); // a stray SIGPIPE would end this test
    EXPECT_FALSE(ForkExecTrackerProcessHandle(nullptr, fds[1]).writeInput("key\n"));
    std::signal(SIGPIPE, previous);
}

TEST_F(RunnerTest, AHelperPathThatIsNoProgramFailsBothCommandsAndLaunchesNothing) {
    writeFile(path("plain-file"), "#!/bin/sh\n");
    writeFile(path("garbage"), "neither program nor script");
    QFile::setPermissions(path("garbage"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString missing = "Tracker helper is missing at %1.";
    // The log directory comes only with an executable file; the garbage is tried last.
    for (const auto& [helper, failure] : std::initializer_list<std::pair<QString, QString>>{
             {path("absent"), missing},
             {path("plain-file"), missing},
             {home.path(), missing},
             {path("garbage"),
              "The tracker helper at %1 could not be started: Exec format error"}}) {
        SCOPED_TRACE(helper.toStdString());
        EXPECT_FALSE(QFile::exists(path("tracker")));
        EXPECT_EQ(startFailure(helper), failure.arg(helper));
        EXPECT_EQ(statusOutcome(helper), failure.arg(helper));
    }
    AsyncTest::spin(20ms);
    EXPECT_TRUE(exits.isEmpty());
}

// An orphan is reaped by whoever adopts it, perhaps late; a zombie has ended all the same.
bool isAlive(pid_t pid) {
    const QByteArray stat = readFile("/proc/" + QString::number(pid) + "/stat");
    return !stat.isEmpty() && stat.mid(stat.lastIndexOf(')') + 2, 1) != "Z";
}

// The application dies without a word while its helper runs; what the helper does with SIGTERM
// and with the end of its input decides whether it ends too. One that survives keeps the next
// start from launching a second helper beside it.
struct ParentDeath {
    const char* name;
    QByteArray script;
    bool helperEnds;
};

class RunnerParentDeathTest : public RunnerTest, public testing::WithParamInterface<ParentDeath> {};

TEST_P(RunnerParentDeathTest, LeavesNoHelperOrKeepsTheNextFromStarting) {
    script(GetParam().script);
    // The application is a fork of this test (so it shares the fixture) that starts the helper
    // and is killed once the helper runs.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            auto handle = start();
            while (!QFile::exists(path("pid"))) {
                ::usleep(1000);
            }
            ::raise(SIGKILL);
        },
        testing::KilledBySignal(SIGKILL), "");
    const pid_t orphan = recordedPid();
    ASSERT_GT(orphan, 0);
    QFile::remove(path("pid"));
    EXPECT_EQ(AsyncTest::waitUntil([&] { return !isAlive(orphan); }, 2s), GetParam().helperEnds);

    if (!GetParam().helperEnds) {
        EXPECT_EQ(startFailure(), "A tracker helper left over from an earlier run is still "
                                  "running and holds " +
                                      path("tracker") + "; a second one was not started.");
        ::kill(orphan, SIGKILL);
        ASSERT_TRUE(AsyncTest::waitUntil([&] { return !isAlive(orphan); }));
    }
    auto handle = start();
    const pid_t next = recordedPid();
    EXPECT_TRUE(isAlive(next));
    ::kill(next, SIGKILL);
    EXPECT_TRUE(waitForExits(1));
}

INSTANTIATE_TEST_SUITE_P(
    Helpers, RunnerParentDeathTest,
    testing::Values(
        ParentDeath{"endsOnSigterm", "run.record HOME\nrun.hang\n", true},
        ParentDeath{"ignoresSigtermButEndsWithItsInput",
                    "run.ignore-term\nrun.read-key\nrun.record HOME\nrun.wait-stdin-eof\n", true},
        ParentDeath{"ignoresSigtermAndItsInput", "run.ignore-term\nrun.record HOME\nrun.hang\n",
                    false}),
    rowName);

// In the test's directory: "report", a valid report by tracker "7.1" followed by megabytes of
// blanks; "flood", megabytes of "x"; "cut", 511 ASCII bytes and "é", which a cut after 512 bytes
// splits.
struct StatusCase {
    const char* name;
    QByteArray script;
    QString outcome;
};

class RunnerStatusTest : public RunnerTest, public testing::WithParamInterface<StatusCase> {};

TEST_P(RunnerStatusTest, FollowsTheCommandsOutcome) {
    writeFile(path("report"), statusDocument("7.1") + QByteArray(4 << 20, ' '));
    writeFile(path("flood"), QByteArray(8 << 20, 'x'));
    writeFile(path("cut"), QByteArray(511, 'a') + "\xc3\xa9");
    script(GetParam().script);
    EXPECT_EQ(statusOutcome(), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, RunnerStatusTest,
    testing::Values(
        StatusCase{"report", "status.stdout-file HOME/report\n", "version 7.1"},
        StatusCase{"failureWithMessage", "status.stderr no configuration\nstatus.exit 3\n",
                   exited + "3: no configuration\n"},
        StatusCase{"failureDespiteAValidReport", "status.stdout-file HOME/report\nstatus.exit 1\n",
                   exited + "1: "},
        StatusCase{"failureWithMegabytesOnStandardError",
                   "status.stderr-file HOME/flood\nstatus.exit 1\n",
                   exited + "1: " + QString(512, 'x')},
        StatusCase{"killedBySignal", "status.raise 9\n", exited + "9: "},
        StatusCase{"failureCutInsideACharacter", "status.stderr-file HOME/cut\nstatus.exit 1\n",
                   exited + "1: No error output"},
        StatusCase{"undecodableReport", "status.stdout [1, 2]\n",
                   TrackerStatusDecodingError("the document is not a JSON object").description()}),
    rowName);

} // namespace

// The production runner, alone and under the production supervisor, starting the scripted
// stand-in helper (see FakeTrackerHelper); scripts say HOME for the test's throwaway directory.

#include "tracker/ForkExecTrackerProcessRunner.h"

#include "StatusDocument.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/TableRows.h"
#include "support/TestFiles.h"
#include "tracker/ForkExecTrackerProcessHandle.h"
#include "tracker/TrackerSupervisor.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono;
using ::PrintTo;

const QString apiKey = "vk_live_9f3c2a7e41d8";
const QString exited = "Tracker helper exited with status ";

int modeOf(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 0777) : -1;
}

// An orphan is reaped by whoever adopts it, perhaps late; a zombie has ended all the same.
bool isAlive(pid_t pid) {
    const QByteArray stat = readFile("/proc/" + QString::number(pid) + "/stat");
    return !stat.isEmpty() && stat.mid(stat.lastIndexOf(')') + 2, 1) != "Z";
}

class RunnerTest : public testing::Test {
protected:
    static constexpr qint64 logRotationSize = 64 * 1024;
    QTemporaryDir home;
    // A status ceiling well above the fault matrix's large report, and far below the production
    // one, so that an endless flood is cut off quickly.
    ForkExecTrackerProcessRunner runner{8 * 1024 * 1024, logRotationSize};
    QList<qint32> exits;

    QString path(const QString& relative) const { return home.filePath(relative); }
    void script(QByteArray lines) {
        writeFile(path("config.toml"), lines.replace("HOME", home.path().toUtf8()));
    }
    LaunchConfiguration launch(const QString& executable = FAKE_TRACKER_HELPER,
                               const QString& key = apiKey) const {
        return {executable,
                path("config.toml"),
                key,
                "Ada's \"work\" laptop  ",
                path("tracker/stdout.log"),
                path("tracker/stderr.log")};
    }
    std::unique_ptr<TrackerProcessHandling> start(const QString& executable = FAKE_TRACKER_HELPER,
                                                  const QString& key = apiKey) {
        return runner.startHelper(launch(executable, key),
                                  [this](qint32 status) { exits.append(status); });
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
    bool waitForExits(int count) {
        return AsyncTest::waitUntil([&] { return exits.size() >= count; });
    }
    pid_t recordedPid() {
        EXPECT_TRUE(AsyncTest::waitUntil([&] { return QFile::exists(path("pid")); }));
        return static_cast<pid_t>(readFile(path("pid")).toInt());
    }
};

// A key longer than the pipe holds, for a helper that never reads it, must not block the start;
// a helper the kernel reaps itself (SIGCHLD ignored) leaves no status, but its end still comes.
TEST_F(RunnerTest, AHelperThatReadsNoKeyAndIsReapedBySomeoneElseStillEndsWithoutAStatus) {
    script("run.hang\n");
    const auto previous = std::signal(SIGCHLD, SIG_IGN);
    alarm(10); // a blocked write ends the test here rather than at the suite's timeout
    start(FAKE_TRACKER_HELPER, QString(1024 * 1024, 'k'))->terminate();
    EXPECT_TRUE(waitForExits(1));
    alarm(0);
    std::signal(SIGCHLD, previous);
    EXPECT_EQ(exits, QList<qint32>{-1});
}

// Terminating or releasing the handle closes standard input; this helper exits when it sees the
// end. (That terminating also sends SIGTERM, the fault matrix's stops show.)
TEST_F(RunnerTest, HelpersGetTheKeyOnlyOnStandardInputAndAppendToPrivateBoundedLogs) {
    script("run.ignore-term\nrun.read-key\nrun.record HOME\nrun.stdout out\nrun.stderr err\n"
           "run.wait-stdin-eof\nrun.exit 4\n");
    const QString out = path("tracker/stdout.log");
    const QString err = path("tracker/stderr.log");
    const mode_t previousMask = ::umask(0);
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
    handle->terminate();
    ASSERT_TRUE(waitForExits(1));
    EXPECT_FALSE(handle->isRunning());
    handle->terminate(); // on an ended helper: nothing to do, nothing fails

    const auto launchAndEnd = [&] {
        start().reset();
        return waitForExits(int(exits.size()) + 1);
    };
    ASSERT_TRUE(launchAndEnd());
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
    ASSERT_TRUE(launchAndEnd());
    ::umask(previousMask);
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

TEST_F(RunnerTest, AHelperPathThatIsNoProgramFailsAndLaunchesNothing) {
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
        EXPECT_FALSE(QFile::exists(path("tracker")));
        EXPECT_EQ(startFailure(helper), failure.arg(helper));
    }
    AsyncTest::spin(20ms);
    EXPECT_TRUE(exits.isEmpty());
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
    ::kill(recordedPid(), SIGKILL);
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

// How long the event loop went without a turn: by the clock, and counting only the GUI thread's
// own work. The work is what this code controls; the clock also counts the time a loaded machine
// lets the thread wait, and blocking calls, which burn no CPU.
class LoopStallMeter {
public:
    LoopStallMeter() {
        ticker.setTimerType(Qt::PreciseTimer);
        QObject::connect(&ticker, &QTimer::timeout, [this] {
            const auto [wall, work] = now();
            longestWait = std::max(longestWait, wall - last.first);
            longestWork = std::max(longestWork, work - last.second);
            last = {wall, work};
        });
        ticker.start(1);
    }

    nanoseconds longestWait{0};
    nanoseconds longestWork{0};

private:
    static std::pair<nanoseconds, nanoseconds> now() {
        timespec work{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &work);
        return {steady_clock::now().time_since_epoch(),
                seconds(work.tv_sec) + nanoseconds(work.tv_nsec)};
    }

    QTimer ticker;
    std::pair<nanoseconds, nanoseconds> last = now();
};

// Misbehaving helpers under the supervisor: whatever a helper does, the event loop keeps turning,
// the user reads what went wrong, the restart budget holds, and stopping is immediate. Stopping
// asks with SIGTERM and nothing stronger, so only a helper that ignores it outlives the stop.
struct Fault {
    const char* name;
    // HOME holds "report" (a valid report) and "large" (a valid report of megabytes).
    QByteArray script;
    // The supervisor's last error once the fault has played out; one ending in ": " is a prefix.
    QString lastError;
    bool crashLocks = false;
    bool reportRead = false;
    bool ignoresStop = false;
};

class HelperFaultMatrix : public RunnerTest, public testing::WithParamInterface<Fault> {
protected:
    FakeSleeper sleeper; // the back-off is counted, not waited out
    TrackerSupervisor supervisor{runner, sleeper, 4, 100ms};

    bool settled() const {
        const Fault& fault = GetParam();
        if (fault.crashLocks) {
            return supervisor.crashLocked();
        }
        return supervisor.lastError().value_or("").startsWith(fault.lastError) &&
               supervisor.trackerStatus().has_value() == fault.reportRead;
    }
};

TEST_P(HelperFaultMatrix, KeepsTheApplicationResponsiveAndTellsWhatWentWrong) {
    const Fault& fault = GetParam();
    writeFile(path("report"), statusDocument("7.1"));
    QJsonObject large = statusObject("7.2");
    large.insert("diagnostic_dump", QString(3 << 20, 'd'));
    writeFile(path("large"), QJsonDocument(large).toJson());
    script(fault.script);

    LoopStallMeter stalls;
    supervisor.start(launch());
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return settled(); }))
        << supervisor.lastError().value_or("(no error)").toStdString();
    // Let a few more status reads and back-off turns happen: nothing may change.
    AsyncTest::spin(250ms);

    const QString error = supervisor.lastError().value_or("");
    EXPECT_TRUE(fault.lastError.endsWith(": ") ? error.startsWith(fault.lastError)
                                               : error == fault.lastError)
        << error.toStdString();
    EXPECT_EQ(supervisor.crashLocked(), fault.crashLocks);
    EXPECT_EQ(supervisor.helperRunning(), !fault.crashLocks);
    const QList<double> backOff = fault.crashLocks ? QList<double>{1, 2, 4, 8} : QList<double>();
    EXPECT_EQ(sleeper.requested, backOff);
    EXPECT_EQ(supervisor.trackerStatus().has_value(), fault.reportRead);

    const pid_t lastHelper = recordedPid();
    QElapsedTimer quitting;
    quitting.start();
    supervisor.stop(true);
    EXPECT_LT(quitting.elapsed(), AsyncTest::scaled(20ms).count());
    if (fault.ignoresStop) {
        AsyncTest::spin(200ms);
        EXPECT_EQ(::kill(lastHelper, 0), 0) << "a stop sends nothing stronger than SIGTERM";
        ::kill(lastHelper, SIGKILL);
    }
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return ::kill(lastHelper, 0) != 0; }, 2s));

    EXPECT_LE(stalls.longestWork, AsyncTest::scaled(20ms));
    // A blocking wait for the helper would show as a gap far beyond any scheduling delay.
    EXPECT_LE(stalls.longestWait, AsyncTest::scaled(150ms));
}

const QByteArray runs = "run.record HOME\nrun.hang\n";
const QByteArray reports = "status.stdout-file HOME/report\n";
const QString unreadable = "The tracker status could not be read because it is not in the "
                           "expected format: ";

INSTANTIATE_TEST_SUITE_P(
    Faults, HelperFaultMatrix,
    testing::Values(
        Fault{"diesAtOnce", "run.record HOME\nrun.exit 3\n" + reports, exited + "3.", true, true},
        Fault{"isKilledBySignal", "run.record HOME\nrun.raise 9\n" + reports, exited + "9.", true,
              true},
        Fault{"closesItsInputAtOnce", "run.close-stdin\n" + runs + reports, "", false, true},
        Fault{"floodsBothStreamsWhileRunningAndAnswering",
              "run.record HOME\nrun.flood stdout 8000000\nrun.flood stderr 8000000\nrun.hang\n"
              "status.flood stderr 8000000\nstatus.stdout-file HOME/report\n"
              "status.flood stderr 8000000\n",
              "", false, true},
        Fault{"floodsStatusOutputEndlessly", runs + "status.flood stdout\n",
              "The tracker helper's status report is larger than 8 MB; it was not read."},
        Fault{"ignoresSigterm", "run.ignore-term\n" + runs + reports, "", false, true, true},
        // Within the test's patience: the status command has no time limit, so the report simply
        // has not arrived and nothing is an error yet.
        Fault{"neverAnswersStatus", runs + "status.sleep 5\n", "", false, false},
        // Only the start of the message is kept, and the exit status outweighs a valid report.
        Fault{"failsWithALongMessageDespiteAValidReport",
              runs + reports + "status.stderr no configuration\nstatus.flood stderr 8000000\n" +
                  "status.exit 3\n",
              exited + "3: no configuration\n" + QString(495, 'x')},
        Fault{"failsWithACharacterCutAtTheMessageLimit",
              runs + "status.stderr " + QByteArray(511, 'a') + "\xc3\xa9\nstatus.exit 2\n",
              exited + "2: No error output"},
        Fault{"printsAReportOfMegabytes", runs + "status.stdout-file HOME/large\n", "", false,
              true},
        Fault{"printsJsonNestedThousandsDeep",
              runs + "status.stdout " + QByteArray(5000, '[') + QByteArray(5000, ']'), unreadable}),
    rowName);

} // namespace

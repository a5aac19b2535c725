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
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <array>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono;
using ::PrintTo;

const QString apiKey = "vk_live_9f3c2a7e41d8";
const QString exited = "Tracker helper exited with status ";
const QByteArray runs = "run.record HOME\nrun.hang\n";
const QByteArray reports = "status.stdout-file HOME/report\n";

int modeOf(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 0777) : -1;
}

// An orphan is reaped by whoever adopts it, perhaps late; a zombie has ended all the same.
bool isAlive(pid_t pid) {
    const QByteArray stat = readFile("/proc/" + QString::number(pid) + "/stat");
    return !stat.isEmpty() && stat.mid(stat.lastIndexOf(')') + 2, 1) != "Z";
}

// The production runner, but every status command first passes `gate`: on the next turn or,
// while it holds, once released. Tests count the commands there and hold them.
class GatedRunner : public ForkExecTrackerProcessRunner {
public:
    using ForkExecTrackerProcessRunner::ForkExecTrackerProcessRunner;
    QCoro::Task<TrackerStatus> runStatus(QString executable, QString config) override {
        co_await gate.sleep(0, CancellationToken());
        co_return co_await ForkExecTrackerProcessRunner::runStatus(executable, config);
    }
    FakeSleeper gate;
};

class RunnerTest : public testing::Test {
protected:
    explicit RunnerTest(nanoseconds statusPollingInterval = 1h)
        : supervisor(runner, sleeper, 4, statusPollingInterval) {}
    void SetUp() override { writeFile(path("report"), statusDocument("7.1")); }
    // A cancelled sleep ends on a later turn; let it end while its sleeper exists.
    void TearDown() override {
        supervisor.stop(true);
        AsyncTest::spin(20ms);
    }

    static constexpr qint64 logRotationSize = 64 * 1024;
    QTemporaryDir home;
    // A status ceiling well above the fault matrix's large report, and far below the production
    // one, so that an endless flood is cut off quickly.
    GatedRunner runner{8 * 1024 * 1024, logRotationSize};
    QList<qint32> exits;
    FakeSleeper sleeper; // the back-off is counted, not waited out
    TrackerSupervisor supervisor;

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
    std::unique_ptr<TrackerProcessHandling> start(const QString& key = apiKey) {
        return runner.startHelper(launch(FAKE_TRACKER_HELPER, key),
                                  [this](qint32 status) { exits.append(status); });
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
    start(QString(1024 * 1024, 'k'))->terminate();
    EXPECT_TRUE(waitForExits(1));
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
    const auto openDescriptors = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto openAfterOne = openDescriptors();

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
    // Nothing of an ended helper stays open here once its process object has gone.
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return openDescriptors() <= openAfterOne; }));
}

TEST(ForkExecTrackerProcessHandle, WritingToAPipeWithoutReaderFailsWithoutSigpipe) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ::close(fds[0]);
    const auto previous = std::signal(SIGPIPE, SIG_DFL); // a stray SIGPIPE would end this test
    EXPECT_FALSE(ForkExecTrackerProcessHandle(nullptr, fds[1]).writeInput("key\n"));
    std::signal(SIGPIPE, previous);
}

// The application dies without a word while its helper runs; what the helper does with SIGTERM
// and with the end of its input decides whether it ends too. One that survives keeps the next
// start from launching a second helper beside it; it comes last, as it keeps the folder.
TEST_F(RunnerTest, AHelperEndsWithTheApplicationOrKeepsTheNextFromStarting) {
    // The application is a fork of this test (so it shares the fixture) that starts the helper
    // and is killed once the helper runs.
    GTEST_FLAG_SET(death_test_style, "fast");
    pid_t orphan = 0;
    for (const auto& [helper, ends] : std::initializer_list<std::pair<QByteArray, bool>>{
             {"run.record HOME\nrun.hang\n", true},
             {"run.ignore-term\nrun.read-key\nrun.record HOME\nrun.wait-stdin-eof\n", true},
             {"run.ignore-term\nrun.record HOME\nrun.hang\n", false}}) {
        script(helper);
        EXPECT_EXIT(
            {
                auto handle = start();
                while (!QFile::exists(path("pid"))) {
                    ::usleep(1000);
                }
                ::raise(SIGKILL);
            },
            testing::KilledBySignal(SIGKILL), "");
        orphan = recordedPid();
        QFile::remove(path("pid"));
        EXPECT_EQ(AsyncTest::waitUntil([&] { return !isAlive(orphan); }, 2s), ends)
            << helper.toStdString();
    }
    supervisor.start(launch());
    EXPECT_EQ(supervisor.lastError(), "A tracker helper left over from an earlier run is still "
                                      "running and holds " +
                                          path("tracker") + "; a second one was not started.");
    supervisor.stop(true);
    ::kill(orphan, SIGKILL);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !isAlive(orphan); }));
    auto handle = start();
    ::kill(recordedPid(), SIGKILL);
    EXPECT_TRUE(waitForExits(1));
}

using TrackerSupervisorTest = RunnerTest;

// Each start clears the restart budget and the lock. Of the helpers that are no program, the
// garbage comes last (the log directory comes only with an executable file) and locks after five
// launches in vain. A helper replaced by a new start ends late, and that changes nothing.
TEST_F(TrackerSupervisorTest, FailingLaunchesBackOffThenLockUntilTheNextStart) {
    writeFile(path("plain-file"), "#!/bin/sh\n");
    writeFile(path("garbage"), "neither program nor script");
    QFile::setPermissions(path("garbage"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString missing = "Tracker helper is missing at %1.";
    for (const auto& [helper, failure] : std::initializer_list<std::pair<QString, QString>>{
             {path("absent"), missing},
             {path("plain-file"), missing},
             {home.path(), missing},
             {path("garbage"),
              "The tracker helper at %1 could not be started: Exec format error"}}) {
        EXPECT_FALSE(QFile::exists(path("tracker")));
        supervisor.start(launch(helper));
        EXPECT_EQ(supervisor.lastError(), failure.arg(helper));
    }
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return supervisor.crashLocked(); }));
    EXPECT_EQ(sleeper.requested, (QList<double>{1, 1, 1, 1, 2, 4, 8}));

    script(runs + reports);
    supervisor.start(launch());
    EXPECT_FALSE(supervisor.crashLocked());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
    const pid_t replaced = recordedPid();
    QFile::remove(path("pid"));
    supervisor.start(launch());
    // Once reaped, its exit has been reported.
    ASSERT_TRUE(
        AsyncTest::waitUntil([&] { return !QFile::exists("/proc/" + QString::number(replaced)); }));
    EXPECT_EQ(sleeper.requested.size(), 7);
}

// Stopping a supervisor or letting it go ends its status polling and its wait for a restart.
TEST_F(TrackerSupervisorTest, StopOrReleaseEndsPollingAndCancelsTheRestart) {
    script("run.exit 3\n" + reports);
    sleeper.hold = true;
    TrackerSupervisor stopped(runner, sleeper, 4, 20ms);
    auto released = std::make_unique<TrackerSupervisor>(runner, sleeper, 4);
    stopped.start(launch());
    released->start(launch());
    ASSERT_TRUE(AsyncTest::waitUntil(
        [&] { return sleeper.pendingCount() == 2 && runner.gate.requested.size() >= 4; }));

    stopped.stop(false);
    released.reset();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 0; }));
    const auto commands = runner.gate.requested.size();
    AsyncTest::spin(100ms);
    EXPECT_EQ(runner.gate.requested.size(), commands);
}

TEST_F(TrackerSupervisorTest, StatusReadsKeepTheLastReportAndClearErrorsOnlyWhileTheHelperRuns) {
    script(runs + reports);
    supervisor.start(launch());
    AsyncTest::run(supervisor.refreshStatus());
    QSignalSpy statusChanges(&supervisor, &TrackerSupervising::trackerStatusChanged);
    script(runs + "status.stderr broken\nstatus.exit 1\n");
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), TrackerStatus::decode(statusDocument("7.1")));
    EXPECT_EQ(supervisor.lastError(), exited + "1: broken\n");
    script(runs + reports);
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.lastError(), std::nullopt);
    EXPECT_EQ(statusChanges.count(), 0); // the same report again is no change

    sleeper.hold = true;
    ::kill(recordedPid(), SIGKILL);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    writeFile(path("report"), statusDocument("7.2"));
    AsyncTest::run(supervisor.refreshStatus());
    EXPECT_EQ(supervisor.trackerStatus(), TrackerStatus::decode(statusDocument("7.2")));
    EXPECT_EQ(supervisor.lastError(), exited + "9."); // the helper is down: that stays news

    supervisor.stop(true);
    AsyncTest::run(supervisor.refreshStatus()); // no launch configuration: nothing to read
    EXPECT_EQ(supervisor.trackerStatus(), std::nullopt);
}

TEST_F(TrackerSupervisorTest, RefreshesShareTheCommandInFlightAndNeverOverlap) {
    runner.gate.hold = true;
    int completed = 0;
    const auto count = [&completed](QCoro::Task<void> refresh) -> QCoro::Task<void> {
        co_await std::move(refresh);
        ++completed;
    };
    supervisor.refreshStatus(path("a"), path("config.toml")); // the command in flight
    count(supervisor.refreshStatus(path("a"), path("config.toml")));
    count(supervisor.refreshStatus(path("a"), path("config.toml")));
    count(supervisor.refreshStatus(path("b"), path("config.toml")));
    AsyncTest::spin(20ms);
    EXPECT_EQ(runner.gate.requested.size(), 1);
    EXPECT_EQ(completed, 0);

    runner.gate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 2; }));
    // Only now does the command for the other helper start.
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return runner.gate.pendingCount() == 1; }));
    EXPECT_EQ(runner.gate.requested.size(), 2);
    runner.gate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return completed == 3; }));
}

// Now by the clock and by the GUI thread's own work.
std::array<nanoseconds, 2> now() {
    timespec work{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &work);
    return {steady_clock::now().time_since_epoch(),
            seconds(work.tv_sec) + nanoseconds(work.tv_nsec)};
}

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
};

class HelperFaultMatrix : public RunnerTest, public testing::WithParamInterface<Fault> {
protected:
    HelperFaultMatrix()
        : RunnerTest(100ms) {}
};

TEST_P(HelperFaultMatrix, KeepsTheApplicationResponsiveAndTellsWhatWentWrong) {
    const Fault& fault = GetParam();
    QJsonObject large = statusObject("7.2");
    large.insert("diagnostic_dump", QString(3 << 20, 'd'));
    writeFile(path("large"), QJsonDocument(large).toJson());
    script(fault.script);
    const auto seen = [&] {
        const QString error = supervisor.lastError().value_or("");
        return std::tuple(
            (fault.lastError.endsWith(": ") ? error.left(fault.lastError.size()) : error)
                .toStdString(),
            supervisor.crashLocked(), supervisor.helperRunning(), sleeper.requested,
            supervisor.trackerStatus().has_value());
    };
    const auto expected = std::tuple(
        fault.lastError.toStdString(), fault.crashLocks, !fault.crashLocks,
        fault.crashLocks ? QList<double>{1, 2, 4, 8} : QList<double>(), fault.reportRead);

    // How long the event loop goes without a turn, by the clock and by the GUI thread's own work.
    // The work is what this code controls; the clock also counts the time a loaded machine lets
    // the thread wait, and blocking calls, which burn no CPU.
    std::array<nanoseconds, 2> last = now(), longest{};
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const auto current = now();
        for (const size_t clock : {0, 1}) {
            longest[clock] = std::max(longest[clock], current[clock] - last[clock]);
        }
        last = current;
    });
    ticker.start(1);
    supervisor.start(launch());
    AsyncTest::waitUntil([&] { return seen() == expected; });
    AsyncTest::spin(250ms); // more status reads and back-off turns: nothing may change
    EXPECT_EQ(seen(), expected);

    const pid_t lastHelper = recordedPid();
    QElapsedTimer quitting;
    quitting.start();
    supervisor.stop(true);
    EXPECT_LT(quitting.elapsed(), AsyncTest::scaled(20ms).count());
    if (fault.script.contains("ignore-term")) {
        AsyncTest::spin(200ms);
        EXPECT_EQ(::kill(lastHelper, 0), 0) << "a stop sends nothing stronger than SIGTERM";
        ::kill(lastHelper, SIGKILL);
    }
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return ::kill(lastHelper, 0) != 0; }, 2s));

    EXPECT_LE(longest[1], AsyncTest::scaled(20ms));
    // A blocking wait for the helper would show as a gap far beyond any scheduling delay.
    EXPECT_LE(longest[0], AsyncTest::scaled(150ms));
}

const QString unreadable = "The tracker status could not be read because it is not in the "
                           "expected format: ";

INSTANTIATE_TEST_SUITE_P(
    Faults, HelperFaultMatrix,
    testing::Values(
        Fault{"diesAtOnce", "run.record HOME\nrun.exit 3\n" + reports, exited + "3.", true, true},
        Fault{"closesItsInputAtOnce", "run.close-stdin\n" + runs + reports, "", false, true},
        Fault{"floodsStatusOutputEndlessly", runs + "status.flood stdout\n",
              "The tracker helper's status report is larger than 8 MB; it was not read."},
        Fault{"ignoresSigterm", "run.ignore-term\n" + runs + reports, "", false, true},
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

#include "tracker/PosixSpawnTrackerProcessRunner.h"

#include "StatusDocument.h"
#include "app/PlatformError.h"
#include "support/AsyncTest.h"
#include "tracker/PosixSpawnTrackerProcessHandle.h"
#include "tracker/TrackerStatusDecodingError.h"
#include "tracker/TrackerSupervisorError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

const QString apiKey = "vk_live_9f3c2a7e41d8";

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
}

// Exit reports of one helper, with the thread each arrived on.
struct ExitRecord {
    QList<qint32> statuses;
    bool allOnGuiThread = true;

    TrackerProcessRunning::ExitHandler handler() {
        return [this](qint32 status) {
            statuses.append(status);
            allOnGuiThread = allOnGuiThread && QThread::currentThread() == qApp->thread();
        };
    }
};

QString describeFailure(QCoro::Task<TrackerStatus>&& task) {
    try {
        AsyncTest::run(std::move(task));
    } catch (const VantrelError& error) {
        return error.description();
    }
    return "no failure";
}

class RunnerTest : public testing::Test {
protected:
    QTemporaryDir home;
    PosixSpawnTrackerProcessRunner runner;

    QString path(const QString& relative) const { return home.filePath(relative); }
    QString configPath() const { return path(".vantrel/config.toml"); }
    QString logDirectory() const { return path(".vantrel/tracker"); }

    void SetUp() override {
        ASSERT_TRUE(home.isValid());
        ASSERT_TRUE(QDir(home.path()).mkpath(".vantrel"));
        ASSERT_TRUE(QDir(home.path()).mkpath("record"));
    }

    void script(const QByteArray& lines) { writeFile(configPath(), lines); }

    LaunchConfiguration configuration(const QString& executable = FAKE_TRACKER_HELPER) const {
        return {executable,
                configPath(),
                apiKey,
                "Ada's \"work\" laptop  ",
                path(".vantrel/tracker/stdout.log"),
                path(".vantrel/tracker/stderr.log")};
    }

    pid_t recordedPid() {
        EXPECT_TRUE(AsyncTest::waitUntil([&] { return QFile::exists(path("record/pid")); }));
        return static_cast<pid_t>(readFile(path("record/pid")).toInt());
    }
};

TEST_F(RunnerTest, TheHelperGetsExactlySixArgumentsAndTheKeyOnlyOnItsStandardInput) {
    script("run.read-key\nrun.record " + path("record").toUtf8() + "\nrun.hang\n");
    ExitRecord exits;
    auto handle = runner.startHelper(configuration(), exits.handler());
    const pid_t pid = recordedPid();

    const QList<QByteArray> argv = readFile(path("record/argv")).split('\0');
    EXPECT_EQ(argv, (QList<QByteArray>{"--config", configPath().toUtf8(), "run", "--api-key-stdin",
                                       "--device-name", "Ada's \"work\" laptop  ", ""}));
    EXPECT_EQ(readFile(path("record/key")), apiKey.toUtf8());
    EXPECT_EQ(readFile(path("record/sigpipe")), "default");
    const QString proc = "/proc/" + QString::number(pid);
    EXPECT_FALSE(readFile(proc + "/environ").contains(apiKey.toUtf8()));
    EXPECT_FALSE(readFile(proc + "/cmdline").contains(apiKey.toUtf8()));
    EXPECT_TRUE(handle->isRunning());

    handle->terminate();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !exits.statuses.isEmpty(); }));
    AsyncTest::spin(50ms);
    EXPECT_EQ(exits.statuses, QList<qint32>{SIGTERM});
    EXPECT_TRUE(exits.allOnGuiThread);
    EXPECT_FALSE(handle->isRunning());
    handle->terminate(); // on an ended helper: nothing to do, nothing fails
}

TEST_F(RunnerTest, LogsAreCreatedOnDemandAndAppendedAcrossLaunches) {
    script("run.stdout out\nrun.stderr err\nrun.exit 4\n");
    ASSERT_FALSE(QFile::exists(logDirectory()));
    for (int launch = 0; launch < 2; ++launch) {
        ExitRecord exits;
        auto handle = runner.startHelper(configuration(), exits.handler());
        ASSERT_TRUE(AsyncTest::waitUntil([&] { return !exits.statuses.isEmpty(); }));
        EXPECT_EQ(exits.statuses, QList<qint32>{4});
    }
    EXPECT_EQ(readFile(path(".vantrel/tracker/stdout.log")), "out\nout\n");
    EXPECT_EQ(readFile(path(".vantrel/tracker/stderr.log")), "err\nerr\n");
}

TEST_F(RunnerTest, AHelperKilledByASignalReportsTheSignalNumber) {
    script("run.record " + path("record").toUtf8() + "\nrun.hang\n");
    ExitRecord exits;
    auto handle = runner.startHelper(configuration(), exits.handler());
    ASSERT_EQ(::kill(recordedPid(), SIGKILL), 0);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !exits.statuses.isEmpty(); }));
    EXPECT_EQ(exits.statuses, QList<qint32>{9});
}

TEST_F(RunnerTest, AReleasedHandleLeavesTheHelperToEndByItselfAndStillReports) {
    // Releasing the handle closes standard input; this helper exits when it sees the end.
    script("run.read-key\nrun.wait-stdin-eof\nrun.exit 6\n");
    ExitRecord exits;
    runner.startHelper(configuration(), exits.handler()).reset();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !exits.statuses.isEmpty(); }));
    EXPECT_EQ(exits.statuses, QList<qint32>{6});
}

TEST_F(RunnerTest, AHelperThatClosesItsInputAtOnceIsHarmless) {
    script("run.close-stdin\nrun.exit 0\n");
    ExitRecord exits;
    auto handle = runner.startHelper(configuration(), exits.handler());
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return !exits.statuses.isEmpty(); }));
    EXPECT_EQ(exits.statuses, QList<qint32>{0});
}

TEST_F(RunnerTest, AnExecutableTheSystemCannotRunFailsWithThePlatformsWords) {
    const QString helper = path("vantrel-tracker");
    writeFile(helper, "neither a program nor a script\n");
    QFile::setPermissions(helper, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString expected =
        "The tracker helper at " + helper + " could not be started: Exec format error";

    ExitRecord exits;
    try {
        runner.startHelper(configuration(helper), exits.handler());
        ADD_FAILURE() << "the launch succeeded";
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.description(), expected);
    }
    EXPECT_EQ(describeFailure(runner.runStatus(helper, configPath())), expected);
    AsyncTest::spin(20ms);
    EXPECT_TRUE(exits.statuses.isEmpty());
}

TEST(PosixSpawnTrackerProcessHandle, WritingToAPipeWithoutReaderFailsWithoutSigpipe) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ::close(fds[0]);
    const auto previous = std::signal(SIGPIPE, SIG_DFL); // a stray SIGPIPE would end this test
    PosixSpawnTrackerProcessHandle handle(nullptr, fds[1]);
    EXPECT_FALSE(handle.writeInput("key\n"));
    EXPECT_FALSE(handle.isRunning());
    std::signal(SIGPIPE, previous);
}

// Every way a helper path can fail to be an executable file.
struct MissingHelper {
    const char* name;
    std::function<QString(const QString& home)> prepare;
};

class RunnerMissingHelperTest : public RunnerTest,
                                public testing::WithParamInterface<MissingHelper> {};

TEST_P(RunnerMissingHelperTest, IsReportedAsMissingAndCreatesNothing) {
    script("status.stdout-file /dev/null\n");
    const QString helper = GetParam().prepare(home.path());
    const QString expected = "Tracker helper is missing at " + helper + ".";

    ExitRecord exits;
    try {
        runner.startHelper(configuration(helper), exits.handler());
        ADD_FAILURE() << "the launch succeeded";
    } catch (const TrackerSupervisorError& error) {
        EXPECT_EQ(error.code(), TrackerSupervisorError::Code::helperMissing);
        EXPECT_EQ(error.description(), expected);
    }
    EXPECT_EQ(describeFailure(runner.runStatus(helper, configPath())), expected);
    EXPECT_FALSE(QFile::exists(logDirectory()));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, RunnerMissingHelperTest,
    testing::Values(MissingHelper{"absent",
                                  [](const QString& home) { return home + "/vantrel-tracker"; }},
                    MissingHelper{"notExecutable",
                                  [](const QString& home) {
                                      const QString copy = home + "/vantrel-tracker";
                                      QFile::copy(FAKE_TRACKER_HELPER, copy);
                                      QFile::setPermissions(copy,
                                                            QFile::ReadOwner | QFile::WriteOwner);
                                      return copy;
                                  }},
                    MissingHelper{"directory", [](const QString& home) { return home; }}),
    [](const auto& row) { return std::string(row.param.name); });

// One status command and what runStatus must make of it.
struct StatusCase {
    const char* name;
    QByteArray before;
    // Prints a valid report (tracker version "7.1") followed by this many blanks.
    std::optional<int> reportPadding;
    QByteArray after;
    // Empty: the report decodes.
    QString failure;
};

class RunnerStatusTest : public RunnerTest, public testing::WithParamInterface<StatusCase> {};

TEST_P(RunnerStatusTest, FollowsTheCommandsOutcome) {
    const StatusCase& row = GetParam();
    QByteArray lines = row.before;
    if (row.reportPadding) {
        writeFile(path("status.json"), statusDocument("7.1") + QByteArray(*row.reportPadding, ' '));
        lines += "status.stdout-file " + path("status.json").toUtf8() + "\n";
    }
    script(lines + row.after);
    if (row.failure.isEmpty()) {
        EXPECT_EQ(
            AsyncTest::run(runner.runStatus(FAKE_TRACKER_HELPER, configPath())).trackerVersion,
            "7.1");
    } else {
        EXPECT_EQ(describeFailure(runner.runStatus(FAKE_TRACKER_HELPER, configPath())),
                  row.failure);
    }
}

const QByteArray floodStandardError = "status.flood-stderr 8000000\n";
// 511 ASCII bytes, then "é": the cut after 512 bytes splits the character.
const QByteArray cutInsideACharacter =
    "status.stderr-hex " + QByteArray(511, 'a').toHex() + "c3a9\n";

INSTANTIATE_TEST_SUITE_P(
    Outcomes, RunnerStatusTest,
    testing::Values(
        StatusCase{"report", {}, 0, {}, {}},
        StatusCase{"reportAfterMegabytesOfPadding", {}, 4 << 20, {}, {}},
        StatusCase{"reportWithMegabytesOnStandardError", floodStandardError, 0, {}, {}},
        StatusCase{"failureWithMessage",
                   "status.stderr no configuration\n",
                   {},
                   "status.exit 3\n",
                   "Tracker helper exited with status 3: no configuration\n"},
        StatusCase{"failureWithoutStandardError",
                   {},
                   {},
                   "status.exit 2\n",
                   "Tracker helper exited with status 2: "},
        StatusCase{"failureDespiteAValidReport",
                   {},
                   0,
                   "status.exit 1\n",
                   "Tracker helper exited with status 1: "},
        StatusCase{"failureWithMegabytesOnStandardError",
                   floodStandardError,
                   {},
                   "status.exit 1\n",
                   "Tracker helper exited with status 1: " + QString(512, 'x')},
        StatusCase{"failureCutInsideACharacter",
                   cutInsideACharacter,
                   {},
                   "status.exit 1\n",
                   "Tracker helper exited with status 1: No error output"},
        StatusCase{"failureWithInvalidText",
                   "status.stderr-hex 6f6bfffe\n",
                   {},
                   "status.exit 1\n",
                   "Tracker helper exited with status 1: No error output"},
        StatusCase{"undecodableReport",
                   "status.stdout [1, 2]\n",
                   {},
                   {},
                   TrackerStatusDecodingError("the document is not a JSON object").description()}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(RunnerTest, AStatusCommandThatNeverEndsLeavesTheGuiThreadRunning) {
    script("status.record " + path("record").toUtf8() + "\nstatus.hang\n");
    QString failure;
    bool finished = false;
    auto observe = [](QCoro::Task<TrackerStatus> task, QString* text,
                      bool* done) -> QCoro::Task<void> {
        try {
            co_await std::move(task);
        } catch (const VantrelError& error) {
            *text = error.description();
        }
        *done = true;
    };
    observe(runner.runStatus(FAKE_TRACKER_HELPER, configPath()), &failure, &finished);
    const pid_t pid = recordedPid();

    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(10);
    AsyncTest::spin(AsyncTest::scaled(300ms));
    EXPECT_GE(ticks, 15);
    EXPECT_FALSE(finished);

    ::kill(pid, SIGKILL);
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return finished; }));
    EXPECT_EQ(failure, "Tracker helper exited with status 9: ");
}

} // namespace

// Misbehaving helpers, run for real by the production runner under the production supervisor:
// whatever a helper does, the event loop keeps turning, the user reads what went wrong, the
// restart budget holds, and stopping is immediate. Stopping asks with SIGTERM and nothing
// stronger, so only a helper that ignores it outlives the stop.

#include "StatusDocument.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/TableRows.h"
#include "support/TestFiles.h"
#include "tracker/ForkExecTrackerProcessRunner.h"
#include "tracker/TrackerSupervisor.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <ctime>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using ::PrintTo;

// How long the event loop went without a turn since construction: by the clock, and counting
// only the GUI thread's own work. The work is what this code controls; the clock also counts the
// time a loaded machine lets the thread wait, and blocking calls, which burn no CPU.
struct LoopStallMeter {
    struct Sample {
        std::chrono::nanoseconds wall;
        std::chrono::nanoseconds work;
    };
    static Sample now() {
        timespec work{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &work);
        return {std::chrono::steady_clock::now().time_since_epoch(),
                std::chrono::seconds(work.tv_sec) + std::chrono::nanoseconds(work.tv_nsec)};
    }
    LoopStallMeter() {
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [this] {
            const Sample sample = now();
            longestWait = std::max(longestWait, sample.wall - last.wall);
            longestWork = std::max(longestWork, sample.work - last.work);
            last = sample;
        });
        timer.start(1);
    }

    QTimer timer;
    Sample last = now();
    std::chrono::nanoseconds longestWait{0};
    std::chrono::nanoseconds longestWork{0};
};

const QString unreadable = "The tracker status could not be read because it is not in the "
                           "expected format: ";

struct Fault {
    const char* name;
    // The helper's script (see FakeTrackerHelper); HOME stands for the test's directory, which
    // holds "report" (a valid report), "large" (a valid report of megabytes), "nested" (arrays
    // nested thousands deep) and "invalid" (a report behind bytes that are not UTF-8).
    QByteArray script;
    // The supervisor's last error once the fault has played out; one ending in ": " is a prefix.
    QString lastError;
    bool crashLocks = false;
    bool reportRead = false;
    bool ignoresStop = false;
};

class HelperFaultMatrix : public testing::TestWithParam<Fault> {
protected:
    QTemporaryDir home;
    // A ceiling well above the large report, and far below the production one, so that an
    // endless flood is cut off quickly.
    ForkExecTrackerProcessRunner runner{8 * 1024 * 1024};
    FakeSleeper sleeper; // the back-off is counted, not waited out
    TrackerSupervisor supervisor{runner, sleeper, 4, 100ms};

    QString path(const QString& name) const { return home.filePath(name); }

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
    const QByteArray report = statusDocument("7.1");
    writeFile(path("report"), report);
    QJsonObject large = statusObject("7.2");
    large.insert("diagnostic_dump", QString(3 << 20, 'd'));
    writeFile(path("large"), QJsonDocument(large).toJson());
    writeFile(path("nested"), QByteArray(5000, '[') + QByteArray(5000, ']'));
    writeFile(path("invalid"), "\xff\xfe" + report);
    writeFile(path("config.toml"), QByteArray(fault.script).replace("HOME", home.path().toUtf8()));

    LoopStallMeter stalls;
    supervisor.start({FAKE_TRACKER_HELPER, path("config.toml"), "key", "desk",
                      path("tracker/stdout.log"), path("tracker/stderr.log")});
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return settled(); }))
        << "last error: " << supervisor.lastError().value_or("(none)").toStdString();
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

    const pid_t lastHelper = static_cast<pid_t>(readFile(path("pid")).toInt());
    ASSERT_GT(lastHelper, 0);
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
const QString exited = "Tracker helper exited with status ";

INSTANTIATE_TEST_SUITE_P(
    Faults, HelperFaultMatrix,
    testing::Values(
        Fault{"diesAtOnce", "run.record HOME\nrun.exit 3\n" + reports, exited + "3.", true, true},
        Fault{"isKilledBySignal", "run.record HOME\nrun.raise 9\n" + reports, exited + "9.", true,
              true},
        Fault{"closesItsInputAtOnce", "run.close-stdin\n" + runs + "status.stdout-file HOME/report",
              "", false, true},
        Fault{"floodsBothStreamsWhileRunningAndAnswering",
              "run.record HOME\nrun.flood stdout 8000000\nrun.flood stderr 8000000\nrun.hang\n"
              "status.flood stderr 8000000\nstatus.stdout-file HOME/report\n"
              "status.flood stderr 8000000\n",
              "", false, true},
        Fault{"floodsStatusOutputEndlessly", runs + "status.flood stdout\n",
              "The tracker helper's status report is larger than 8 MB; it was not read."},
        Fault{"ignoresSigterm", "run.ignore-term\n" + runs + "status.stdout-file HOME/report\n", "",
              false, true, true},
        // Within the test's patience: the status command has no time limit, so the report simply
        // has not arrived and nothing is an error yet.
        Fault{"neverAnswersStatus", runs + "status.sleep 5\n", "", false, false},
        Fault{"printsInvalidUtf8", runs + "status.stdout-file HOME/invalid\n", unreadable},
        Fault{"failsWithInvalidUtf8", runs + "status.stderr-file HOME/invalid\nstatus.exit 2\n",
              exited + "2: No error output"},
        Fault{"printsAReportOfMegabytes", runs + "status.stdout-file HOME/large\n", "", false,
              true},
        Fault{"printsJsonNestedThousandsDeep", runs + "status.stdout-file HOME/nested\n",
              unreadable}),
    rowName);

} // namespace

// How much the status command costs through the runner compared with spawning the same helper
// by hand, and how long the event loop stalls while a helper takes a second to answer.
//
// Usage: tracker_status_benchmark [rounds]

#include "StatusDocument.h"
#include "tracker/ForkExecTrackerProcessRunner.h"

#include <QCoreApplication>
#include <QCoroTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using namespace std::chrono_literals;

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        std::exit(1);
    }
    file.write(content);
}

// posix_spawn, read standard output to its end, wait: the least any runner has to do.
qint64 bareStatusCommand(const QByteArray& config) {
    QElapsedTimer clock;
    clock.start();
    int output[2];
    if (pipe(output) != 0) {
        std::exit(1);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, output[0]);
    posix_spawn_file_actions_addclose(&actions, output[1]);
    const char* argv[] = {
        FAKE_TRACKER_HELPER, "--config", config.constData(), "status", "--json", nullptr};
    pid_t pid = 0;
    posix_spawn(&pid, FAKE_TRACKER_HELPER, &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    char buffer[65536];
    QByteArray document;
    for (ssize_t count; (count = read(output[0], buffer, sizeof buffer)) > 0;) {
        document.append(buffer, count);
    }
    close(output[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return clock.nsecsElapsed();
}

qint64 runnerStatusCommand(ForkExecTrackerProcessRunner& runner, const QString& config) {
    QElapsedTimer clock;
    clock.start();
    QCoro::waitFor(runner.runStatus(FAKE_TRACKER_HELPER, config));
    return clock.nsecsElapsed();
}

double medianMilliseconds(std::vector<qint64> samples) {
    std::sort(samples.begin(), samples.end());
    return static_cast<double>(samples[samples.size() / 2]) / 1e6;
}

// Runs `work` on the event loop while a 1 ms timer ticks; returns the longest gap between ticks.
double longestTimerGapMilliseconds(const std::function<void()>& work) {
    QElapsedTimer sinceTick;
    qint64 longestGapNs = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longestGapNs = std::max(longestGapNs, sinceTick.nsecsElapsed());
        sinceTick.restart();
    });
    ticker.start(1);
    sinceTick.start();
    work();
    return static_cast<double>(longestGapNs) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 200;

    QTemporaryDir directory;
    const QString document = directory.filePath("status.json");
    writeFile(document, statusDocument("1.0"));
    const QString fastConfig = directory.filePath("fast.toml");
    writeFile(fastConfig, "status.stdout-file " + document.toUtf8() + "\n");
    const QString slowConfig = directory.filePath("slow.toml");
    writeFile(slowConfig, "status.sleep 1\nstatus.stdout-file " + document.toUtf8() + "\n");

    ForkExecTrackerProcessRunner runner;
    const QByteArray encodedFastConfig = fastConfig.toUtf8();
    for (int i = 0; i < 10; ++i) { // warm the page cache and the dynamic loader
        bareStatusCommand(encodedFastConfig);
        runnerStatusCommand(runner, fastConfig);
    }
    std::vector<qint64> bare;
    std::vector<qint64> throughRunner;
    for (int i = 0; i < rounds; ++i) { // interleaved, so that drift affects both alike
        bare.push_back(bareStatusCommand(encodedFastConfig));
        throughRunner.push_back(runnerStatusCommand(runner, fastConfig));
    }
    const double bareMs = medianMilliseconds(bare);
    const double runnerMs = medianMilliseconds(throughRunner);
    std::printf("status command, median of %d: runner %.3f ms, bare posix_spawn %.3f ms, "
                "ratio %.2f (aim <= 1.3)\n",
                rounds, runnerMs, bareMs, runnerMs / bareMs);

    // A 1 ms timer stands for the GUI: any gap beyond its interval is time the loop was held.
    // The same second without a status command is the baseline (scheduling noise of the machine).
    const double idleGapMs =
        longestTimerGapMilliseconds([] { QCoro::waitFor(QCoro::sleepFor(1s)); });
    const double busyGapMs = longestTimerGapMilliseconds(
        [&] { QCoro::waitFor(runner.runStatus(FAKE_TRACKER_HELPER, slowConfig)); });
    std::printf("longest gap between 1 ms ticks while a status command takes one second: %.2f ms "
                "(aim < 20 ms); in an idle second: %.2f ms\n",
                busyGapMs, idleGapMs);
    return 0;
}

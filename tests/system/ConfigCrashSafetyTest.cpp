#include "SystemTestFiles.h"
#include "system/TrackerConfigFile.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SystemTestFiles;

namespace {

// Large enough to take several write() calls, and different in every byte from the next one.
QString value(qint64 generation) {
    return QString::number(generation) + ':' +
           QString(300 * 1024, QLatin1Char(char('a' + generation % 26)));
}

QByteArray contents(qint64 generation) {
    return "# crash-safety test\napi_url = \"" + value(generation).toUtf8() + "\"\n[s]\nk = 1\n";
}

// The generation whose complete contents `bytes` are, or nothing for anything else (a torn file).
std::optional<qint64> generationOf(const QByteArray& bytes) {
    const auto match =
        QRegularExpression("api_url = \"([0-9]+):").match(QString::fromLatin1(bytes));
    const qint64 generation = match.captured(1).toLongLong();
    return match.hasMatch() && contents(generation) == bytes ? std::optional(generation)
                                                             : std::nullopt;
}

// A writer killed with SIGKILL at random moments: the file must always hold one complete
// generation, and a killed writer's temporary file must not pile up beside it.
TEST(ConfigCrashSafety, KilledWriterLeavesOldOrNewContentsAndAtMostOneTemporaryFile) {
    QTemporaryDir home;
    const QString directory = home.filePath(".vantrel");
    const QString path = directory + "/config.toml";
    write(path, contents(0));
    // Kills land at random points of a write's own length, so that most rounds see a write
    // finish and some cut one short, however slow the machine or the sanitizers make writing.
    qint64 oneWriteMicroseconds = 1000;
    for (int warmUp = 1; warmUp <= 2; ++warmUp) {
        QElapsedTimer timer;
        timer.start();
        TrackerConfigFile(path).setValue(value(warmUp), "api_url");
        oneWriteMicroseconds = std::max(oneWriteMicroseconds, timer.nsecsElapsed() / 1000);
    }
    ASSERT_EQ(generationOf(read(path)), 2);

    QRandomGenerator random(20240501);
    qint64 lastSeen = 0;
    for (int round = 0; round < 40; ++round) {
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            try {
                for (qint64 generation = lastSeen + 1000;; ++generation) {
                    TrackerConfigFile(path).setValue(value(generation), "api_url");
                }
            } catch (...) {
                ::_exit(1);
            }
        }
        QThread::usleep(static_cast<unsigned long>(oneWriteMicroseconds / 2 +
                                                   random.bounded(oneWriteMicroseconds * 3)));
        ::kill(writer, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        ASSERT_EQ(status, SIGKILL) << "the writer stopped on its own";

        const std::optional<qint64> generation = generationOf(read(path));
        ASSERT_TRUE(generation.has_value()) << "torn file after round " << round;
        ASSERT_GE(*generation, lastSeen);
        lastSeen = *generation;
        EXPECT_LE(entriesStartingWith(directory, ".config.toml.tmp-").size(), 1);
    }
    EXPECT_GT(lastSeen, 0) << "no write finished before a kill; the test proved nothing";

    // The next write clears what the last killed writer left behind.
    TrackerConfigFile(path).setValue("done", "api_url");
    EXPECT_EQ(entriesStartingWith(directory, ".config.toml.tmp-"), QStringList());
}

} // namespace

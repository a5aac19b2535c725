#include "ConfigWriterGenerations.h"
#include "SystemTestFiles.h"
#include "system/TrackerConfigFile.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

using namespace SystemTestFiles;

namespace {

// A writer killed with SIGKILL at random moments: the file must always hold one complete
// generation, and a killed writer's temporary file must not pile up beside it.
TEST(ConfigCrashSafety, KilledWriterLeavesOldOrNewContentsAndAtMostOneTemporaryFile) {
    QTemporaryDir home;
    const QString directory = home.filePath(".vantrel");
    const QString path = directory + "/config.toml";
    write(path, ConfigWriterGenerations::contents(0));

    QRandomGenerator random(20240501);
    qint64 nextGeneration = 1;
    qint64 lastSeen = 0;
    int roundsWithLeftover = 0;
    for (int round = 0; round < 40; ++round) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(VANTREL_CONFIG_WRITER_CHILD, {path, QString::number(nextGeneration)});
        ASSERT_TRUE(child.waitForStarted(10000));
        QThread::usleep(5000 + random.bounded(60000));
        child.kill();
        ASSERT_TRUE(child.waitForFinished(10000));
        ASSERT_EQ(child.exitStatus(), QProcess::CrashExit) << "the writer stopped on its own";

        const std::optional<qint64> generation = ConfigWriterGenerations::generationOf(read(path));
        ASSERT_TRUE(generation.has_value()) << "torn file after round " << round;
        ASSERT_GE(*generation, lastSeen);
        lastSeen = *generation;
        nextGeneration = std::max(nextGeneration, *generation + 1) + 1000;

        const QStringList leftovers = entriesStartingWith(directory, ".config.toml.tmp-");
        ASSERT_LE(leftovers.size(), 1) << leftovers.join(' ').toStdString();
        roundsWithLeftover += leftovers.size();
        if (*generation > 0) {
            EXPECT_EQ(permissions(path), 0600u);
        }
    }
    EXPECT_GT(lastSeen, 0) << "no write finished before a kill; the test proved nothing";

    // The next write clears what the last killed writer left behind.
    TrackerConfigFile(path).setValue("done", "api_url");
    EXPECT_EQ(entriesStartingWith(directory, ".config.toml.tmp-"), QStringList());
    std::printf("rounds that left a temporary file behind: %d of 40\n", roundsWithLeftover);
}

} // namespace

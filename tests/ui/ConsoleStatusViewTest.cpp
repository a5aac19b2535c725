#include "ui/ConsoleStatusView.h"

#include "support/AppFakes.h"
#include "support/AsyncTest.h"

#include <QBuffer>

#include <gtest/gtest.h>

namespace {

TEST(ConsoleStatusView, PrintsALineOnlyWhenWhatItShowsChanges) {
    AppHarness harness;
    QBuffer output;
    harness.credentials.stored = "secret-key-123";
    output.open(QIODevice::WriteOnly);
    auto state = harness.make(false);
    ConsoleStatusView view(*state, output);

    AsyncTest::run(state->start());
    harness.supervisor.setTrackerStatus(sampleTrackerStatus());
    harness.supervisor.setTrackerStatus(sampleTrackerStatus());
    harness.poller.onUpdate(TodaySummary{"1 hr 5 mins", 3900});
    harness.supervisor.setCrashLocked(true);

    EXPECT_EQ(QString::fromUtf8(output.data()).split('\n', Qt::SkipEmptyParts),
              QStringList({"Vantrel: Sign in required", "Vantrel: Connecting",
                           "Vantrel: Connecting — today 1 hr 5 mins",
                           "Vantrel: Action required — Tracker stopped after repeated crashes. — "
                           "today 1 hr 5 mins"}));
    EXPECT_FALSE(QString::fromUtf8(output.data()).contains("secret-key-123"));
}

} // namespace

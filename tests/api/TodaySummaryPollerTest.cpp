#include "api/TodaySummaryPoller.h"

#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryFetching.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"
#include "support/TableRows.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>

namespace {

using ::PrintTo;

// Answers through `gate` with the next outcome (the last repeats). With gate.hold set a fetch
// stays in flight until gate.releaseOne() or, like the real client, fails once its token is
// cancelled; `ignoreCancellation` makes it answer anyway, as a reply already on its way would.
class FakeFetcher : public TodaySummaryFetching {
public:
    QCoro::Task<TodaySummary> fetchTodaySummary(QString serverURL, QString apiKey,
                                                CancellationToken token) override {
        calls.append(serverURL + " " + apiKey);
        const auto outcome = outcomes.size() > 1 ? outcomes.takeFirst() : outcomes.first();
        // Chosen outside the co_await: GCC 12 destroys a temporary from a conditional there twice.
        const CancellationToken gateToken = ignoreCancellation ? CancellationToken() : token;
        co_await gate.sleep(0, gateToken);
        if (!outcome || (token.isCancelled() && !ignoreCancellation)) {
            throw TodaySummaryClientError::networkUnavailable();
        }
        co_return *outcome;
    }

    // An absent outcome is a failed fetch.
    QList<std::optional<TodaySummary>> outcomes{TodaySummary{"1 hr 5 mins", 3900}};
    FakeSleeper gate;
    bool ignoreCancellation = false;
    QStringList calls;
};

class TodaySummaryPollerTest : public testing::Test {
protected:
    TodaySummaryPollerTest() { sleeper.hold = true; }
    // A cancelled loop ends on a later turn of the event loop, and it still uses the sleeper and
    // the fetcher on its way out.
    ~TodaySummaryPollerTest() override {
        poller.reset();
        AsyncTest::spin(std::chrono::milliseconds(20));
    }

    void start(const QString& url = "https://a.example") {
        poller->start(url, "key", [this](const TodaySummary& summary) { updates.append(summary); });
    }

    FakeFetcher fetcher;
    FakeSleeper sleeper;
    std::unique_ptr<TodaySummaryPoller> poller =
        std::make_unique<TodaySummaryPoller>(&fetcher, &sleeper, 60);
    QList<TodaySummary> updates;
};

TEST_F(TodaySummaryPollerTest, FetchesAtOnceAndAfterEachPauseSilentOnFailureUntilRestarted) {
    fetcher.outcomes = {std::nullopt, TodaySummary{"2 mins", 120}};
    start("https://old.example");
    EXPECT_EQ(fetcher.calls, QStringList{"https://old.example key"})
        << "the first fetch is at once";
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    EXPECT_TRUE(updates.isEmpty());
    EXPECT_EQ(sleeper.requested, QList<double>{60});

    sleeper.releaseOne();
    ASSERT_TRUE(
        AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1 && !updates.isEmpty(); }));
    start("https://new.example");
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return updates.size() == 2; }));
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(sleeper.pendingCount(), 1) << "the old loop pauses no more";
    EXPECT_EQ(updates, QList<TodaySummary>(2, TodaySummary{"2 mins", 120}));
    sleeper.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return fetcher.calls.size() == 4; }));
    EXPECT_EQ(fetcher.calls.last(), "https://new.example key");
}

struct StopRow {
    const char* name;
    bool duringFetch;
    // The held fetch answers after the stop, as a reply already on its way would.
    bool answerAnyway;
    // Releases the poller instead of calling stop().
    bool release;
};

class PollerStopTest : public TodaySummaryPollerTest,
                       public testing::WithParamInterface<StopRow> {};

TEST_P(PollerStopTest, NothingIsFetchedOrReportedAfterwards) {
    fetcher.gate.hold = GetParam().duringFetch;
    fetcher.ignoreCancellation = GetParam().answerAnyway;
    start();
    ASSERT_TRUE(AsyncTest::waitUntil(
        [&] { return fetcher.gate.pendingCount() + sleeper.pendingCount() == 1; }));
    const qsizetype updatesBefore = updates.size();
    GetParam().release ? poller.reset() : poller->stop();
    fetcher.gate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(fetcher.gate.pendingCount() + sleeper.pendingCount(), 0);
    EXPECT_EQ(fetcher.calls.size(), 1);
    EXPECT_EQ(updates.size(), updatesBefore);
    EXPECT_EQ(sleeper.requested.size(), GetParam().duringFetch ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(, PollerStopTest,
                         testing::Values(StopRow{"StopDuringFetch", true, false, false},
                                         StopRow{"AnswerAfterStop", true, true, false},
                                         StopRow{"StopDuringSleep", false, false, false},
                                         StopRow{"ReleaseDuringSleep", false, false, true},
                                         StopRow{"ReleaseDuringFetch", true, true, true}),
                         rowName);

} // namespace

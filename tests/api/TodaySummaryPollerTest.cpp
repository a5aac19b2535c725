#include "api/TodaySummaryPoller.h"

#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryFetching.h"
#include "support/AsyncTest.h"
#include "support/FakeSleeper.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>

namespace {

// Fails the first fetch and answers every later one. With gate.hold set a fetch stays in flight
// until gate.releaseOne() and then answers even when its token was cancelled meanwhile, as a reply
// already on its way would.
class FakeFetcher : public TodaySummaryFetching {
public:
    QCoro::Task<TodaySummary> fetchTodaySummary(QString serverURL, QString apiKey,
                                                CancellationToken) override {
        calls.append(serverURL + " " + apiKey);
        const bool fails = calls.size() == 1;
        co_await gate.sleep(0, {});
        if (fails) {
            throw TodaySummaryClientError::networkUnavailable();
        }
        co_return TodaySummary{"2 mins", 120};
    }

    FakeSleeper gate;
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

// The loops that restarts, refreshes and stops replace must pause and report no more, even when
// their fetch is answered after all.
TEST_F(TodaySummaryPollerTest,
       FetchesAtOnceAndAfterEachPauseSilentOnFailureUntilReplacedOrStopped) {
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
    fetcher.gate.hold = true;
    poller->refreshNow();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return fetcher.gate.pendingCount() == 1; }));
    EXPECT_EQ(fetcher.calls.last(), "https://new.example key");
    poller->stop();
    fetcher.gate.releaseOne();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(sleeper.pendingCount(), 0);
    EXPECT_EQ(updates.size(), 2);

    fetcher.gate.hold = false;
    start();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    poller.reset();
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(sleeper.pendingCount(), 0) << "releasing the poller ends its pause";
}

} // namespace

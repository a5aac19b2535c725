#include "api/TodaySummaryPoller.h"

#include "AwaitTask.h"
#include "api/TodaySummaryClientError.h"
#include "api/TodaySummaryFetching.h"
#include "support/FakeSleeper.h"

#include <QCoroSignal>

#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <variant>

namespace {

class Relay : public QObject {
    Q_OBJECT
Q_SIGNALS:
    void fired();
};

struct DeleteLater {
    void operator()(QObject* object) const { object->deleteLater(); }
};

// Answers on a later turn with the next outcome (the last repeats). With `hold` it answers only
// on release() or, like the real client, with networkUnavailable once its token is cancelled;
// `ignoreCancellation` makes a held fetch succeed after all, as a reply already on its way would.
class FakeFetcher : public TodaySummaryFetching {
public:
    using Outcome = std::variant<TodaySummary, TodaySummaryClientError>;

    QCoro::Task<TodaySummary> fetchTodaySummary(QString serverURL, QString apiKey,
                                                CancellationToken token) override {
        calls.append(serverURL + " " + apiKey);
        const Outcome outcome = outcomes.front();
        if (outcomes.size() > 1) {
            outcomes.pop_front();
        }
        std::unique_ptr<Relay, DeleteLater> relay(new Relay);
        if (hold) {
            m_held.append(relay.get());
            if (!ignoreCancellation) {
                token.onCancel(relay.get(), [raw = relay.get()] { Q_EMIT raw->fired(); });
            }
        } else {
            QMetaObject::invokeMethod(
                relay.get(), [raw = relay.get()] { Q_EMIT raw->fired(); }, Qt::QueuedConnection);
        }
        co_await qCoro(relay.get(), &Relay::fired);
        m_held.removeOne(relay.get());
        if (token.isCancelled() && !ignoreCancellation) {
            throw TodaySummaryClientError::networkUnavailable();
        }
        if (const auto* error = std::get_if<TodaySummaryClientError>(&outcome)) {
            throw *error;
        }
        co_return std::get<TodaySummary>(outcome);
    }

    void releaseAll() {
        for (Relay* relay : m_held) {
            QMetaObject::invokeMethod(
                relay, [relay] { Q_EMIT relay->fired(); }, Qt::QueuedConnection);
        }
    }

    std::deque<Outcome> outcomes{TodaySummary{"1 hr 5 mins", 3900}};
    bool hold = false;
    bool ignoreCancellation = false;
    QStringList calls;

private:
    QList<Relay*> m_held;
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
        poller->start(url, "key", [this](const TodaySummary& summary) {
            updates.append(summary);
            updateTimes.append(sleeper.elapsed);
        });
    }

    FakeFetcher fetcher;
    FakeSleeper sleeper;
    std::unique_ptr<TodaySummaryPoller> poller =
        std::make_unique<TodaySummaryPoller>(&fetcher, &sleeper, 60);
    QList<TodaySummary> updates;
    QList<double> updateTimes;
};

TEST_F(TodaySummaryPollerTest, AFailureIsSilentAndTheNextGoodFetchGivesExactlyOneCallback) {
    fetcher.outcomes = {TodaySummaryClientError::invalidResponse(), TodaySummary{"2 mins", 120}};
    start();
    EXPECT_EQ(fetcher.calls, QStringList{"https://a.example key"}) << "the first fetch is at once";
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    EXPECT_TRUE(updates.isEmpty());
    EXPECT_EQ(sleeper.requested, QList<double>{60});

    sleeper.releaseOne();
    ASSERT_TRUE(
        AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1 && !updates.isEmpty(); }));
    EXPECT_EQ(updates, QList<TodaySummary>{(TodaySummary{"2 mins", 120})});
    EXPECT_EQ(updateTimes, QList<double>{60});
}

TEST_F(TodaySummaryPollerTest, StartingAgainReplacesTheLoop) {
    start("https://old.example");
    start("https://new.example");
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(sleeper.pendingCount(), 1);
    EXPECT_EQ(updates.size(), 1);
    sleeper.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return fetcher.calls.size() == 3; }));
    EXPECT_EQ(fetcher.calls.last(), "https://new.example key");
}

TEST_F(TodaySummaryPollerTest, StopCancelsAFetchInFlightAndNothingFollows) {
    fetcher.hold = true;
    start();
    poller->stop();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_EQ(fetcher.calls.size(), 1);
    EXPECT_TRUE(updates.isEmpty());
    EXPECT_TRUE(sleeper.requested.isEmpty());
    EXPECT_FALSE(poller->isRunning());
}

TEST_F(TodaySummaryPollerTest, AnAnswerArrivingAfterStopNeverReachesTheCallback) {
    fetcher.hold = true;
    fetcher.ignoreCancellation = true;
    start();
    poller->stop();
    fetcher.releaseAll();
    AsyncTest::spin(std::chrono::milliseconds(20));

    EXPECT_TRUE(updates.isEmpty());
    EXPECT_TRUE(sleeper.requested.isEmpty());
}

TEST_F(TodaySummaryPollerTest, StoppingOrReleasingThePollerDuringTheSleepEndsTheLoop) {
    start();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 1; }));
    poller.reset();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return sleeper.pendingCount() == 0; }));
    AsyncTest::spin(std::chrono::milliseconds(20));
    EXPECT_EQ(fetcher.calls.size(), 1);
}

} // namespace

#include "TodaySummaryPollerTest.moc"

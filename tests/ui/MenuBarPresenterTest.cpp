#include "ui/MenuBarPresenter.h"

#include "PanelTestSupport.h"
#include "ui/CountdownText.h"
#include "ui/SyncTimeText.h"

#include <gtest/gtest.h>

namespace {

const auto rowName = [](const auto& row) { return std::string(row.param.name); };
const QDateTime uploadedAt(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC);

// The age of an upload at "2024-05-01T10:00:00Z", seen `elapsedMs` later.
struct AgeRow {
    const char* name;
    qint64 elapsedMs;
    const char* relative;
};

class LastSyncAge : public ::testing::TestWithParam<AgeRow> {};

TEST_P(LastSyncAge, readsAsTheTableSays) {
    const auto texts =
        SyncTimeText::format("2024-05-01T10:00:00Z", uploadedAt.addMSecs(GetParam().elapsedMs),
                             QLocale(QLocale::English, QLocale::UnitedStates), QTimeZone::utc());
    ASSERT_TRUE(texts);
    EXPECT_EQ(texts->relative, GetParam().relative);
}

INSTANTIATE_TEST_SUITE_P(Edges, LastSyncAge,
                         ::testing::Values(AgeRow{"almostTen", 9'900, "few seconds ago"},
                                           AgeRow{"ten", 10'000, "10 seconds ago"},
                                           AgeRow{"fiftyNine", 59'000, "59 seconds ago"},
                                           AgeRow{"oneMinute", 60'000, "1 minute ago"},
                                           AgeRow{"almostTwoMinutes", 119'000, "1 minute ago"},
                                           AgeRow{"twoMinutes", 120'000, "2 minutes ago"},
                                           AgeRow{"almostAnHour", 3'599'000, "59 minutes ago"},
                                           AgeRow{"oneHour", 3'600'000, "1 hour ago"},
                                           AgeRow{"almostTwoHours", 7'199'000, "1 hour ago"},
                                           AgeRow{"twoHours", 7'200'000, "2 hours ago"},
                                           AgeRow{"almostADay", 86'399'000, "23 hours ago"},
                                           AgeRow{"oneDay", 86'400'000, "1 day ago"},
                                           AgeRow{"almostTwoDays", 172'799'000, "1 day ago"},
                                           AgeRow{"twoDays", 172'800'000, "2 days ago"},
                                           AgeRow{"fromTheFuture", -3'600'000, "few seconds ago"},
                                           AgeRow{"fromJustAheadTruncatesTowardZero", -10'500,
                                                  "few seconds ago"}),
                         rowName);

struct ParseRow {
    const char* name;
    const char* text;
    std::optional<QDateTime> expected;
};

class InternetDateTime : public ::testing::TestWithParam<ParseRow> {};

TEST_P(InternetDateTime, parsesOnlyStrictTimestamps) {
    EXPECT_EQ(SyncTimeText::parseInternetDateTime(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, InternetDateTime,
    ::testing::Values(
        ParseRow{"fractional", "2024-05-01T10:00:00.123Z", uploadedAt.addMSecs(123)},
        ParseRow{"plain", "2024-05-01T10:00:00Z", uploadedAt},
        ParseRow{"offset", "2024-05-01T12:00:00+02:00", uploadedAt},
        ParseRow{"longFraction", "2024-05-01T10:00:00.123456Z", uploadedAt.addMSecs(123)},
        ParseRow{"spaceAndNoZone", "2024-05-01 10:00", std::nullopt},
        ParseRow{"noZone", "2024-05-01T10:00:00", std::nullopt},
        ParseRow{"noSeconds", "2024-05-01T10:00Z", std::nullopt},
        ParseRow{"impossibleDay", "2024-02-30T10:00:00Z", std::nullopt},
        ParseRow{"trailingText", "2024-05-01T10:00:00Z ", std::nullopt},
        ParseRow{"trailingLineFeed", "2024-05-01T10:00:00Z\n", std::nullopt},
        ParseRow{"otherScriptsDigits", "٢٠٢٤-05-01T10:00:00Z", std::nullopt},
        ParseRow{"offsetBeforeTheFirstYear", "0001-01-01T00:00:00+01:00", std::nullopt},
        ParseRow{"offsetAfterTheLastYear", "9999-12-31T23:59:59-01:00", std::nullopt},
        ParseRow{"empty", "", std::nullopt}),
    rowName);

TEST(LastSyncAbsolute, usesTheMediumDateAndShortTimeOfTheLocaleInTheTimeZone) {
    const auto inNewYork = SyncTimeText::format("2024-05-01T10:00:00Z", uploadedAt,
                                                QLocale(QLocale::English, QLocale::UnitedStates),
                                                QTimeZone("America/New_York"));
    ASSERT_TRUE(inNewYork);
    EXPECT_EQ(inNewYork->absolute, "May 1, 2024, 6:00 AM");
    const auto inBerlin = SyncTimeText::format("2024-05-01T10:00:00Z", uploadedAt,
                                               QLocale(QLocale::German, QLocale::Germany),
                                               QTimeZone("Europe/Berlin"));
    ASSERT_TRUE(inBerlin);
    EXPECT_EQ(inBerlin->absolute, "1. Mai 2024, 12:00");
}

struct CountdownRow {
    const char* name;
    qint64 remainingMs;
    const char* text;
};

class Countdown : public ::testing::TestWithParam<CountdownRow> {};

TEST_P(Countdown, showsMinutesAndSecondsWithHoursFromOneHourUp) {
    EXPECT_EQ(CountdownText::text(uploadedAt.addMSecs(GetParam().remainingMs), uploadedAt),
              GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(AcrossTheHourAndPastExpiry, Countdown,
                         ::testing::Values(CountdownRow{"fiveMinutes", 300'000, "5:00"},
                                           CountdownRow{"partSecondDropped", 299'400, "4:59"},
                                           CountdownRow{"justUnderAnHour", 3'599'000, "59:59"},
                                           CountdownRow{"oneHour", 3'600'000, "1:00:00"},
                                           CountdownRow{"overTenHours", 36'061'000, "10:01:01"},
                                           CountdownRow{"atExpiry", 0, "0:00"},
                                           CountdownRow{"countsUpAfterExpiry", -65'000, "1:05"},
                                           CountdownRow{"countsUpPastAnHour", -3'725'000,
                                                        "1:02:05"}),
                         rowName);

TEST(PanelLastSync, agesOnItsTimelineOnlyWhileShown) {
    PanelFixture fixture;
    fixture.reportStatus(
        [](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T10:00:00.123Z"; });
    ASSERT_TRUE(fixture.presenter->lastSync());
    EXPECT_EQ(fixture.presenter->lastSync()->absolute, "May 1, 2024, 10:00 AM");
    EXPECT_EQ(fixture.presenter->lastSync()->relative, "few seconds ago");
    EXPECT_FALSE(fixture.lastSyncTicker().active);

    fixture.presenter->setShown(true);
    EXPECT_TRUE(fixture.lastSyncTicker().active);
    EXPECT_EQ(fixture.lastSyncTicker().interval, std::chrono::seconds(5));
    int changes = 0;
    QObject::connect(fixture.presenter.get(), &MenuBarPresenter::lastSyncChanged,
                     [&changes] { ++changes; });
    fixture.now = fixture.now.addSecs(12);
    EXPECT_EQ(fixture.presenter->lastSync()->relative, "few seconds ago"); // until the next tick
    fixture.lastSyncTicker().fire();
    EXPECT_EQ(fixture.presenter->lastSync()->relative, "11 seconds ago");
    EXPECT_EQ(changes, 1);
    fixture.lastSyncTicker().fire();
    EXPECT_EQ(changes, 1); // the same text is no news

    fixture.presenter->setShown(false);
    EXPECT_FALSE(fixture.lastSyncTicker().active);
}

TEST(PanelLastSync, showsAReportFromThePanelsFirstMomentAndNotSyncedWithoutAStrictTimestamp) {
    PanelFixture fixture;
    EXPECT_FALSE(fixture.presenter->lastSync());
    fixture.reportStatus([](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01 10:00"; });
    EXPECT_FALSE(fixture.presenter->lastSync());
    // A panel opened after the report shows it at once, in the user's own locale.
    fixture.reportStatus(
        [](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T10:00:00Z"; });
    const MenuBarPresenter opened(
        *fixture.state, fixture.harness.supervisor, [&fixture] { return fixture.now; },
        [] { return std::make_unique<FakeTicker>(); }, [](const QString&) {});
    EXPECT_TRUE(opened.lastSync());
}

TEST(PanelCountdown, ticksEverySecondWhileAShownCodeHasAnExpiry) {
    PanelFixture fixture;
    fixture.beginSignInWithCode(3601);
    EXPECT_FALSE(fixture.countdownTicker().active);
    fixture.presenter->setShown(true);
    EXPECT_TRUE(fixture.countdownTicker().active);
    EXPECT_EQ(fixture.countdownTicker().interval, std::chrono::seconds(1));
    EXPECT_EQ(fixture.presenter->expiryCountdown(), "1:00:01");

    int ticks = 0;
    QObject::connect(fixture.presenter.get(), &MenuBarPresenter::countdownChanged,
                     [&ticks] { ++ticks; });
    fixture.now = fixture.now.addSecs(2);
    fixture.countdownTicker().fire();
    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(fixture.presenter->expiryCountdown(), "59:59");

    fixture.state->cancelDeviceAuthorization();
    AsyncTest::waitUntil([&] { return !fixture.state->deviceAuthorizationCode(); });
    EXPECT_FALSE(fixture.presenter->expiryCountdown());
    EXPECT_FALSE(fixture.countdownTicker().active);
}

} // namespace

#include "ui/MenuBarPresenter.h"

#include "PanelTestSupport.h"
#include "ui/CountdownText.h"
#include "ui/SyncTimeText.h"
#include "ui/TrayMenu.h"
#include "ui/TrayMenuPresenter.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

const QDateTime uploadedAt(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC);
const QLocale american(QLocale::English, QLocale::UnitedStates);

// Each unit's last value and first, for an upload at 10:00:00, and a clock behind the helper's;
// the date and time in the locale's medium date and short time, in the time zone.
TEST(LastSyncText, readsTheAgeInWholeSecondsTruncatedTowardZeroAndTheTimeInTheLocalesZone) {
    QStringList ages;
    for (const qint64 elapsedMs :
         {9'900, 10'000, 59'000, 60'000, 119'000, 120'000, 3'599'000, 3'600'000, 7'199'000,
          7'200'000, 86'399'000, 86'400'000, 172'799'000, 172'800'000, -3'600'000, -10'500}) {
        ages.append(SyncTimeText::format("2024-05-01T10:00:00Z", uploadedAt.addMSecs(elapsedMs),
                                         american, QTimeZone::utc())
                        .value()
                        .relative);
    }
    EXPECT_EQ(ages,
              QStringList({"few seconds ago", "10 seconds ago", "59 seconds ago", "1 minute ago",
                           "1 minute ago", "2 minutes ago", "59 minutes ago", "1 hour ago",
                           "1 hour ago", "2 hours ago", "23 hours ago", "1 day ago", "1 day ago",
                           "2 days ago", "few seconds ago", "few seconds ago"}));
    EXPECT_EQ(SyncTimeText::format("2024-05-01T10:00:00Z", uploadedAt,
                                   QLocale(QLocale::German, QLocale::Germany),
                                   QTimeZone("Europe/Berlin"))
                  ->absolute,
              "1. Mai 2024, 12:00");
}

TEST(InternetDateTime, parsesOnlyStrictTimestamps) {
    QList<QDateTime> parsed;
    for (const char* text :
         {"2024-05-01T10:00:00.123Z", "2024-05-01T12:00:00+02:00", "2024-05-01T10:00:00.123456Z"}) {
        parsed.append(SyncTimeText::parseInternetDateTime(text).value_or(QDateTime()));
    }
    EXPECT_EQ(parsed, QList({uploadedAt.addMSecs(123), uploadedAt, uploadedAt.addMSecs(123)}));
    for (const char* text :
         {"2024-05-01 10:00", "2024-05-01T10:00:00", "2024-05-01T10:00Z", "2024-02-30T10:00:00Z",
          "2024-05-01T10:00:00Z ", "2024-05-01T10:00:00Z\n", "٢٠٢٤-05-01T10:00:00Z",
          "0001-01-01T00:00:00+01:00", "9999-12-31T23:59:59-01:00", ""}) {
        EXPECT_FALSE(SyncTimeText::parseInternetDateTime(text)) << text;
    }
}

// Minutes and seconds, with hours from one hour up; past the expiry it counts up again.
TEST(Countdown, showsMinutesAndSecondsWithHoursFromOneHourUp) {
    QStringList texts;
    for (const qint64 remainingMs :
         {300'000, 299'400, 3'599'000, 3'600'000, 36'061'000, 0, -65'000, -3'725'000}) {
        texts.append(CountdownText::text(uploadedAt.addMSecs(remainingMs), uploadedAt));
    }
    EXPECT_EQ(texts, QStringList({"5:00", "4:59", "59:59", "1:00:00", "10:01:01", "0:00", "1:05",
                                  "1:02:05"}));
}

TEST(PanelLastSync, showsOnlyAStrictTimestampAndAgesOnItsTimeline) {
    PanelFixture fixture;
    EXPECT_FALSE(fixture.presenter->lastSync());
    fixture.reportStatus([](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01 10:00"; });
    EXPECT_FALSE(fixture.presenter->lastSync());
    fixture.reportStatus(
        [](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T10:00:00.123Z"; });
    EXPECT_EQ(fixture.presenter->lastSync(),
              (SyncTimeText::Texts{"May 1, 2024, 10:00 AM", "few seconds ago"}));
    // A panel opened after the report shows it at once.
    const MenuBarPresenter opened(
        *fixture.state, fixture.harness.supervisor, [&fixture] { return fixture.now; },
        [] { return std::make_unique<FakeTicker>(); }, [](const QString&) {});
    EXPECT_TRUE(opened.lastSync());

    fixture.presenter->setShown(true); // the panel window's test sees the ticker run only then
    EXPECT_EQ(fixture.lastSyncTicker().interval, std::chrono::seconds(5));
    QSignalSpy changes(fixture.presenter.get(), &MenuBarPresenter::lastSyncChanged);
    fixture.now = fixture.now.addSecs(12);
    EXPECT_EQ(fixture.presenter->lastSync()->relative, "few seconds ago"); // until the next tick
    fixture.lastSyncTicker().fire();
    EXPECT_EQ(fixture.presenter->lastSync()->relative, "11 seconds ago");
    fixture.lastSyncTicker().fire();
    EXPECT_EQ(changes.count(), 1); // the same text is no news
}

// The panel's countdown ticks while the panel is shown; the tray menu's whenever there is one, as
// a host may keep the menu open for as long as the user reads it.
TEST(PanelCountdown, ticksEverySecondInTheShownPanelAndInTheTrayMenu) {
    PanelFixture fixture;
    TrayMenuPresenter entries(*fixture.presenter, fixture.ticker());
    TrayMenu menu(entries);
    FakeTicker* menuTicker = fixture.tickers.at(2);
    entries.trigger("open-dashboard"); // not offered while signed out
    EXPECT_TRUE(fixture.harness.workspace.opened.isEmpty());
    EXPECT_FALSE(menuTicker->active);

    fixture.beginSignInWithCode(3601);
    EXPECT_TRUE(menuTicker->active);
    EXPECT_FALSE(fixture.countdownTicker().active);
    fixture.presenter->setShown(true);
    EXPECT_TRUE(fixture.countdownTicker().active);
    EXPECT_EQ(fixture.countdownTicker().interval, std::chrono::seconds(1));
    EXPECT_EQ(fixture.presenter->expiryCountdown(), "1:00:01");
    QSignalSpy panelTicks(fixture.presenter.get(), &MenuBarPresenter::countdownChanged);
    QSignalSpy menuChanges(&entries, &TrayMenuPresenter::changed);
    fixture.now = fixture.now.addSecs(2);
    menuTicker->fire();
    EXPECT_EQ(menuChanges.count(), 1);
    EXPECT_TRUE(menuTexts(menu).contains("[Expires in 59:59]"));
    fixture.countdownTicker().fire();
    EXPECT_EQ(panelTicks.count(), 1);
    EXPECT_EQ(fixture.presenter->expiryCountdown(), "59:59");

    entries.trigger("cancel-sign-in");
    AsyncTest::waitUntil([&] { return !fixture.state->deviceAuthorizationCode(); });
    EXPECT_FALSE(fixture.presenter->expiryCountdown());
    EXPECT_FALSE(fixture.countdownTicker().active || menuTicker->active);
    EXPECT_TRUE(menuTexts(menu).contains("Sign In"));
}

} // namespace

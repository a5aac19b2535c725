#include "ui/MenuBarView.h"

#include "PanelTestSupport.h"
#include "support/TableRows.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/HealthAppearance.h"
#include "ui/MenuRowButton.h"
#include "ui/PanelPlacement.h"
#include "ui/PanelWindow.h"
#include "ui/SecondaryTextColour.h"
#include "ui/SettingsWindow.h"
#include "ui/TrayIconPresenter.h"
#include "ui/TrayMenu.h"
#include "ui/TrayMenuPresenter.h"

#include <QAbstractButton>
#include <QApplication>
#include <QGroupBox>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {

using ::PrintTo;

// Each state as the panel draws it, as the tray menu lists it and, where given, as Settings draws
// its Connection section (the sign-in it offers, the key field's title), texts parted by "|". The
// menu and Settings are made first, so each change must reach them.
struct StateRow {
    const char* name;
    std::function<void(PanelFixture&)> arrange;
    QString panel;
    QString menu;
    QString settings = {};
};

class PanelState : public ::testing::TestWithParam<StateRow> {};

TEST_P(PanelState, drawsItsTextsAndButtonsInOrderInThePanelTheTrayMenuAndSettings) {
    PanelFixture fixture;
    TrayMenuPresenter entries(*fixture.presenter, fixture.ticker());
    TrayMenu menu(entries);
    SettingsPresenter settingsPresenter(*fixture.state);
    SettingsWindow settings(settingsPresenter);
    settings.findChild<QToolButton*>("advancedToggle")->setChecked(true);
    settings.show();
    GetParam().arrange(fixture);
    MenuBarView view(*fixture.presenter);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    EXPECT_EQ(view.width(), 330);
    EXPECT_EQ(drawnTexts(view).join('|'), GetParam().panel);
    EXPECT_EQ(menuTexts(menu).join('|'), GetParam().menu);
    if (!GetParam().settings.isEmpty()) {
        EXPECT_EQ(drawnTexts(*settings.findChild<QGroupBox*>()).join('|'), GetParam().settings);
    }
}

const QString caption = "Vantrel opens a secure browser page where you approve this Mac.";
const QString rows = "|Settings…|Diagnostics…|Sign Out|Quit Vantrel";
const QString signedOutRows = "|Settings…|Diagnostics…|Quit Vantrel";
const QString menuRows = "|-|Settings…|Diagnostics…|Sign Out|-|Quit Vantrel";
const QString signedOutMenuRows = "|-|Settings…|Diagnostics…|-|Quit Vantrel";
const QString signedOutSettings =
    "Sign in through the browser to connect this Mac without copying an API key.";
const QString authorizedSettings =
    "This Mac is authorized. Its credential is stored only in Keychain.";
const QString keySettings = "Advanced connection settings|API server URL|%1|Manual keys remain "
                            "available for self-hosted and Waka-compatible setups. Saving "
                            "restarts the local tracker safely.";
const auto signedIn = [](PanelFixture& f) { f.signIn(); };
const auto signedInWith = [](std::function<void(PanelFixture&)> arrange) {
    return [arrange](PanelFixture& f) {
        f.signIn();
        arrange(f);
    };
};
const auto crashLocked =
    signedInWith([](PanelFixture& f) { f.harness.supervisor.setCrashLocked(true); });
const auto withCode = [](PanelFixture& f) { f.beginSignInWithCode(300); };

INSTANTIATE_TEST_SUITE_P(
    States, PanelState,
    ::testing::Values(
        StateRow{"signedOut", [](PanelFixture&) {},
                 "Vantrel|Sign in required|Last sync|Not synced yet|Sign In|" + caption +
                     signedOutRows,
                 "[Sign in required]|-|Sign In" + signedOutMenuRows,
                 signedOutSettings + "|Sign In in Browser|" + keySettings.arg("API key")},
        StateRow{"tracking", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setHelperRunning(true);
                     f.reportStatus([](TrackerStatus& s) {
                         s.lastSuccessfulUploadAt = "2024-05-01T09:58:00Z";
                     });
                     f.harness.poller.onUpdate(TodaySummary{"1 hr 5 mins", 3900});
                 }),
                 "Vantrel|Tracking|Last sync|May 1, 2024, 9:58 AM|(2 minutes ago)|Today|"
                 "1 hr 5 mins|Open Dashboard" +
                     rows,
                 "[Tracking]|-|Open Dashboard" + menuRows,
                 authorizedSettings + "|" + keySettings.arg("Replace API key")},
        StateRow{"keyRejected", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setHelperRunning(true);
                     f.reportStatus(
                         [](TrackerStatus& s) { s.lastUploadErrorKind = "unauthorized"; });
                 }),
                 "Vantrel|Action required|The API key was rejected.|Last sync|Not synced yet|"
                 "Today|—|Sign In Again|" +
                     caption + rows,
                 "[Action required]|[The API key was rejected.]|-|Sign In Again" + menuRows,
                 authorizedSettings + "|Sign In in Browser|" + keySettings.arg("Replace API key")},
        StateRow{"crashLocked", crashLocked,
                 "Vantrel|Action required|Tracker stopped after repeated crashes.|Last sync|"
                 "Not synced yet|Today|—|Open Dashboard|Retry Tracker" +
                     rows,
                 "[Action required]|[Tracker stopped after repeated crashes.]|-|Open Dashboard|"
                 "Retry Tracker" +
                     menuRows},
        StateRow{"helperFailed", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setLastError(QString("exited with status 3"));
                 }),
                 "Vantrel|Connecting|Last sync|Not synced yet|Today|—|Open Dashboard|"
                 "Retry Tracker" +
                     rows,
                 "[Connecting]|-|Open Dashboard|Retry Tracker" + menuRows},
        StateRow{"signingInWithoutACodeYet",
                 [](PanelFixture& f) {
                     f.harness.authorizer.startOutcomes.push_back(DeviceAuthorizationSession{});
                     f.state->beginDeviceAuthorization();
                 },
                 "Vantrel|Connecting|Preparing a secure browser sign in…|Last sync|"
                 "Not synced yet|Open Approval Page|Cancel Sign In" +
                     rows,
                 "[Connecting]|-|Open Approval Page|Cancel Sign In" + menuRows,
                 signedOutSettings + "|[Signing In…]|" + keySettings.arg("API key")},
        StateRow{"signingInWithACode", withCode,
                 "Vantrel|Connecting|Confirmation code|WDJB-MJHT|Expires in|5:00|Approve this "
                 "Mac in your browser.|Last sync|Not synced yet|Open Approval Page|"
                 "Cancel Sign In" +
                     rows,
                 "[Connecting]|[Confirmation code: WDJB-MJHT]|[Expires in 5:00]|-|"
                 "Open Approval Page|Cancel Sign In" +
                     menuRows},
        StateRow{"signInFailed", [](PanelFixture& f) { f.failSignIn("Permission denied"); },
                 "Vantrel|Sign in required|Last sync|Not synced yet|Permission denied|Sign In|" +
                     caption + signedOutRows,
                 "[Sign in required]|[Permission denied]|-|Sign In" + signedOutMenuRows}),
    rowName);

// Secondary texts are captions, smaller than the body. An error that does not fit three lines is
// cut at the end of the third with "…".
TEST(PanelView, drawsAnErrorInThreeWholeRedLinesAndTheCodeSelectableInABoldMonospacedCaption) {
    PanelFixture fixture;
    fixture.failSignIn(QString("The secret service refused the request. ").repeated(12));
    MenuBarView view(*fixture.presenter);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QLabel* error = shown<QLabel>(view, "The secret service");
    ASSERT_NE(error, nullptr);
    EXPECT_TRUE(error->text().endsWith(QChar(0x2026)));
    EXPECT_EQ(error->palette().color(error->foregroundRole()), HealthAppearance::red());
    // Every line is drawn in full: none wraps further or falls below the label.
    EXPECT_GE(error->height(), error->heightForWidth(error->width()));
    EXPECT_LT(error->height(), 4 * error->fontMetrics().lineSpacing());

    fixture.beginSignInWithCode();
    const QLabel* code = shown<QLabel>(view, "WDJB-MJHT");
    ASSERT_NE(code, nullptr);
    EXPECT_TRUE(code->textInteractionFlags() & Qt::TextSelectableByMouse);
    EXPECT_TRUE(QFontInfo(code->font()).fixedPitch() && code->font().bold());
    EXPECT_LT(code->font().pointSizeF(), view.font().pointSizeF());
    EXPECT_EQ(shown<QLabel>(view, "Confirmation code")->font(), view.font());
    EXPECT_LT(shown<QLabel>(view, "Expires in")->font().pointSizeF(), view.font().pointSizeF());
}

TEST(MenuRowButton, drawsKeyboardFocusAsARingApartFromHover) {
    MenuRowButton row("Settings…", "gearshape");
    row.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&row));
    row.clearFocus(); // the row is its own window here, which activation focuses
    QEvent leave(QEvent::Leave);
    QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
    QCoreApplication::sendEvent(&row, &leave); // the window may have opened under the pointer
    const QImage plain = row.grab().toImage();
    QCoreApplication::sendEvent(&row, &enter);
    const QImage hovered = row.grab().toImage();
    QCoreApplication::sendEvent(&row, &leave);
    row.setFocus(Qt::TabFocusReason);
    const QImage focused = row.grab().toImage();

    EXPECT_TRUE(hovered != plain && focused != plain && focused != hovered);
    const QRgb ring = row.palette().color(QPalette::Highlight).rgb();
    EXPECT_EQ(focused.pixel(row.width() / 2, 0), ring);
    EXPECT_NE(hovered.pixel(row.width() / 2, 0), ring);
}

qsizetype magentaPixels(QWidget& window) {
    const QImage image = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
    const auto* pixels = reinterpret_cast<const QRgb*>(image.constBits());
    return std::count_if(pixels, pixels + image.width() * image.height(), [](QRgb pixel) {
        return qRed(pixel) > 200 && qBlue(pixel) > 200 && qGreen(pixel) < 90;
    });
}

// Secondary text and drawn symbols take their colours when drawn: a switch between light and
// dark (the palette change the application delivers to each window) reaches every window.
TEST(SecondaryTextColour, everyWindowRedrawsInTheNewSecondaryColour) {
    PanelFixture fixture;
    SettingsPresenter settings(*fixture.state);
    MenuBarView panel(*fixture.presenter);
    SettingsWindow settingsWindow(settings);
    DiagnosticsWindow diagnostics(*fixture.state, fixture.harness.supervisor);
    for (QWidget* window : std::initializer_list<QWidget*>{&panel, &settingsWindow, &diagnostics}) {
        SCOPED_TRACE(window->metaObject()->className());
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
        EXPECT_EQ(magentaPixels(*window), 0);
        QPalette switched = window->palette();
        switched.setColor(QPalette::PlaceholderText, Qt::magenta);
        window->setPalette(switched);
        EXPECT_GT(magentaPixels(*window), 20);
    }
}

// A theme that leaves the secondary colour faint on its window colour gets a readable one; a
// readable one is kept as the theme made it. The tray icon is drawn anew at each switch.
TEST(SecondaryTextColour, repairsOnlyAFaintSecondaryColourAndTheTrayIconRedraws) {
    SecondaryTextColour keeper;
    PanelFixture fixture;
    TrayIconPresenter icon(*fixture.state);
    QSignalSpy redraws(&icon, &TrayIconPresenter::changed);
    const QPalette before = QApplication::palette();
    for (const auto& [window, text, placeholder, kept] :
         {std::tuple(QColor(0x2a, 0x2a, 0x2a), QColor(Qt::white), QColor(0x40, 0x40, 0x40), false),
          std::tuple(QColor(0xef, 0xef, 0xef), QColor(Qt::black), QColor(0x80, 0x80, 0x80),
                     true)}) {
        QPalette palette = before;
        palette.setColor(QPalette::Window, window);
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::PlaceholderText, placeholder);
        QApplication::setPalette(palette);
        const QColor shown = QApplication::palette().color(QPalette::PlaceholderText);
        EXPECT_EQ(shown == placeholder, kept) << shown.name().toStdString();
        EXPECT_GE(std::abs(shown.lightnessF() - window.lightnessF()), 0.25f);
        EXPECT_GE(std::abs(shown.lightnessF() - text.lightnessF()), 0.2f) << "still secondary";
    }
    QApplication::setPalette(before);
    EXPECT_EQ(redraws.count(), 4); // three switches and a repair
}

// Each control, clicked in the panel or chosen in the tray menu, reaches its operation.
struct ActionRow {
    const char* name;
    std::function<void(PanelFixture&)> arrange;
    const char* control;
    std::function<bool(PanelFixture&)> happened;
    bool opensWindow = false; // then the panel, always on top, makes way for it
};

class PanelAction : public ::testing::TestWithParam<ActionRow> {};

TEST_P(PanelAction, clickInThePanelAndTheTrayMenuEntryCallItsOperation) {
    {
        PanelFixture fixture;
        GetParam().arrange(fixture);
        PanelWindow panel([&fixture] { return new MenuBarView(*fixture.presenter); });
        panel.setTrayMode(true);
        panel.present(QRect(400, 300, 1, 1));
        auto* control = shown<QAbstractButton>(*panel.content(), GetParam().control);
        ASSERT_NE(control, nullptr) << drawnTexts(*panel.content()).join(", ").toStdString();
        QTest::mouseClick(control, Qt::LeftButton);
        EXPECT_TRUE(AsyncTest::waitUntil([&] { return GetParam().happened(fixture); }));
        EXPECT_EQ(panel.isVisible(), !GetParam().opensWindow);
    }
    PanelFixture fixture;
    GetParam().arrange(fixture);
    TrayMenuPresenter entries(*fixture.presenter, fixture.ticker());
    TrayMenu menu(entries);
    const qsizetype entry = menuTexts(menu).indexOf(GetParam().control); // enabled, unbracketed
    ASSERT_GE(entry, 0);
    menu.actions().at(entry)->trigger();
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return GetParam().happened(fixture); }));
}

INSTANTIATE_TEST_SUITE_P(
    Controls, PanelAction,
    ::testing::Values(
        ActionRow{"signIn", [](PanelFixture&) {}, "Sign In",
                  [](PanelFixture& f) { return f.harness.authorizer.startCalls.size() == 1; }},
        ActionRow{"openApprovalPage", withCode, "Open Approval Page",
                  [](PanelFixture& f) {
                      // The first opening is the sign-in's own.
                      return f.harness.workspace.opened ==
                             QList<QUrl>(2, QUrl("https://vantrel.app/device?code=WDJB"));
                  }},
        ActionRow{"cancelSignIn", withCode, "Cancel Sign In",
                  [](PanelFixture& f) { return !f.state->isAuthorizingDevice(); }},
        ActionRow{"openDashboard", signedIn, "Open Dashboard",
                  [](PanelFixture& f) {
                      return f.harness.workspace.opened.size() == 1 &&
                             f.harness.workspace.opened.first().path().endsWith("/dashboard");
                  }},
        ActionRow{"retryTracker", crashLocked, "Retry Tracker",
                  [](PanelFixture& f) { return f.harness.supervisor.starts.size() == 2; }},
        ActionRow{"settings", [](PanelFixture&) {}, "Settings…",
                  [](PanelFixture& f) {
                      return f.harness.application.activations == 1 &&
                             f.harness.application.settingsWindowsShown == 1;
                  },
                  true},
        ActionRow{"diagnostics", [](PanelFixture&) {}, "Diagnostics…",
                  [](PanelFixture& f) { return f.openedWindows == QStringList{"diagnostics"}; },
                  true},
        ActionRow{"signOut", signedIn, "Sign Out",
                  [](PanelFixture& f) { return !f.state->hasCredential(); }},
        ActionRow{"quit", signedIn, "Quit Vantrel",
                  [](PanelFixture& f) {
                      return f.harness.application.terminations == 1 &&
                             f.harness.supervisor.stops == QList<bool>{true};
                  }}),
    rowName);

// Placement beside the anchor on a 1920×1080 screen whose panel takes 32 px at one edge (the
// panel window's own test opens it below, above and right of its anchor).
const QRect full(0, 0, 1920, 1080);
const QList<PanelPlacement::Screen> topBar{{full, QRect(0, 32, 1920, 1048)}};
const QList<PanelPlacement::Screen> bottomBar{{full, QRect(0, 0, 1920, 1048)}};
const QList<PanelPlacement::Screen> rightBar{{full, QRect(0, 0, 1872, 1080)}};
// A second screen to the right, taller and offset, with its own bar at the top.
const QList<PanelPlacement::Screen> twoScreens{
    {full, QRect(0, 0, 1920, 1080)},
    {QRect(1920, -200, 2560, 1440), QRect(1920, -170, 2560, 1410)}};

struct PlacementRow {
    const char* name;
    QList<PanelPlacement::Screen> screens;
    QRect anchor;
    QPoint expected;
};

TEST(PanelPlacement, opensAwayFromTheNearestEdgeInsideTheAvailableArea) {
    for (const auto& [name, screens, anchor, expected] : {
             PlacementRow{"leftOfAnIconAtTheRight", rightBar, {1884, 500, 24, 24}, {1542, 311}},
             PlacementRow{"clampedAtTheTopRightCorner", topBar, {1900, 4, 16, 16}, {1590, 32}},
             // Nearer the left edge than the bottom: beside the icon, lifted above the bar.
             PlacementRow{"besideAnIconInTheBottomLeft", bottomBar, {2, 1060, 16, 16}, {22, 648}},
             PlacementRow{"cursorOnTheSecondScreen", twoScreens, {3000, -190, 1, 1}, {2835, -170}},
             PlacementRow{
                 "betweenScreensOnTheNearest", twoScreens, {1919, 1200, 1, 1}, {1924, 840}},
         }) {
        EXPECT_EQ(PanelPlacement::topLeft(QSize(330, 400), anchor, screens), expected) << name;
    }
}

} // namespace

#include "ui/MenuBarView.h"

#include "PanelTestSupport.h"
#include "core/PlatformError.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/HealthAppearance.h"
#include "ui/MenuRowButton.h"
#include "ui/PanelPlacement.h"
#include "ui/PanelWindow.h"
#include "ui/SecondaryTextColour.h"
#include "ui/SettingsWindow.h"
#include "ui/TrayMenu.h"
#include "ui/TrayMenuPresenter.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

const auto rowName = [](const auto& row) { return std::string(row.param.name); };

QAbstractButton* button(const QWidget& view, const QString& text) {
    for (QAbstractButton* candidate : view.findChildren<QAbstractButton*>()) {
        if (candidate->text() == text && candidate->isVisibleTo(&view)) {
            return candidate;
        }
    }
    return nullptr;
}

struct ShownRow {
    const char* name;
    std::function<void(PanelFixture&)> arrange;
    QStringList drawn;
};

class PanelView : public ::testing::TestWithParam<ShownRow> {};

TEST_P(PanelView, drawsTheStatesTextsAndButtonsInOrder) {
    PanelFixture fixture;
    GetParam().arrange(fixture);
    MenuBarView view(*fixture.presenter);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    EXPECT_EQ(view.width(), 330);
    EXPECT_EQ(drawnTexts(view), GetParam().drawn);
}

const QString caption = "Vantrel opens a secure browser page where you approve this Mac.";
const QStringList header{"Vantrel"};
const QStringList notSynced{"Last sync", "Not synced yet"};
const QStringList rows{"Settings…", "Diagnostics…", "Sign Out", "Quit Vantrel"};
const auto signedIn = [](PanelFixture& f) { f.signIn(); };
const auto signedInWith = [](std::function<void(PanelFixture&)> arrange) {
    return [arrange](PanelFixture& f) {
        f.signIn();
        arrange(f);
    };
};

INSTANTIATE_TEST_SUITE_P(
    States, PanelView,
    ::testing::Values(
        ShownRow{"signedOut", [](PanelFixture&) {},
                 header + QStringList{"Sign in required"} + notSynced +
                     QStringList{"Sign In", caption, "Settings…", "Diagnostics…", "Quit Vantrel"}},
        ShownRow{"signedInWithoutSummary", signedIn,
                 header + QStringList{"Connecting"} + notSynced +
                     QStringList{"Today", "—", "Open Dashboard"} + rows},
        ShownRow{"tracking", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setHelperRunning(true);
                     f.reportStatus([](TrackerStatus& s) {
                         s.lastSuccessfulUploadAt = "2024-05-01T09:58:00Z";
                     });
                     f.harness.poller.onUpdate(TodaySummary{"1 hr 5 mins", 3900});
                 }),
                 header +
                     QStringList{"Tracking", "Last sync", "May 1, 2024, 9:58 AM", "(2 minutes ago)",
                                 "Today", "1 hr 5 mins", "Open Dashboard"} +
                     rows},
        ShownRow{"keyRejected", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setHelperRunning(true);
                     f.reportStatus(
                         [](TrackerStatus& s) { s.lastUploadErrorKind = "unauthorized"; });
                 }),
                 header + QStringList{"Action required", "The API key was rejected."} + notSynced +
                     QStringList{"Today", "—", "Sign In Again", caption} + rows},
        ShownRow{
            "crashLocked",
            signedInWith([](PanelFixture& f) { f.harness.supervisor.setCrashLocked(true); }),
            header + QStringList{"Action required", "Tracker stopped after repeated crashes."} +
                notSynced + QStringList{"Today", "—", "Open Dashboard", "Retry Tracker"} + rows},
        ShownRow{"helperFailed", signedInWith([](PanelFixture& f) {
                     f.harness.supervisor.setLastError(QString("exited with status 3"));
                 }),
                 header + QStringList{"Connecting"} + notSynced +
                     QStringList{"Today", "—", "Open Dashboard", "Retry Tracker"} + rows},
        ShownRow{"signingInWithoutACodeYet",
                 [](PanelFixture& f) {
                     f.harness.authorizer.startOutcomes.push_back(DeviceAuthorizationSession{});
                     f.state->beginDeviceAuthorization();
                 },
                 header + QStringList{"Connecting", "Preparing a secure browser sign in…"} +
                     notSynced + QStringList{"Open Approval Page", "Cancel Sign In"} + rows},
        ShownRow{"signingInWithACode", [](PanelFixture& f) { f.beginSignInWithCode(300); },
                 header +
                     QStringList{"Connecting", "Confirmation code", "WDJB-MJHT", "Expires in",
                                 "5:00", "Approve this Mac in your browser."} +
                     notSynced + QStringList{"Open Approval Page", "Cancel Sign In"} + rows},
        ShownRow{"signInFailed",
                 [](PanelFixture& f) {
                     f.harness.authorizer.startOutcomes.push_back(
                         std::make_exception_ptr(PlatformError("Permission denied")));
                     f.state->beginDeviceAuthorization();
                     AsyncTest::waitUntil([&f] { return f.state->presentedError().has_value(); });
                 },
                 header + QStringList{"Sign in required"} + notSynced +
                     QStringList{"Permission denied", "Sign In", caption, "Settings…",
                                 "Diagnostics…", "Quit Vantrel"}}),
    rowName);

QLabel* labelShowing(const QWidget& view, const std::function<bool(const QString&)>& text) {
    for (QLabel* label : view.findChildren<QLabel*>()) {
        if (text(label->text()) && label->isVisibleTo(&view)) {
            return label;
        }
    }
    return nullptr;
}

// The error in red: whole when it fits three lines, else cut at the end of the third with "…".
class PanelError : public ::testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(PanelError, showsAtMostThreeWholeLinesInRed) {
    PanelFixture fixture;
    const QString text = QString(GetParam().first).repeated(GetParam().second);
    fixture.harness.authorizer.startOutcomes.push_back(
        std::make_exception_ptr(PlatformError(text)));
    fixture.state->beginDeviceAuthorization();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return fixture.state->presentedError().has_value(); }));
    MenuBarView view(*fixture.presenter);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QLabel* error = labelShowing(view, [&](const QString& shown) {
        return shown == text || (shown.endsWith(QChar(0x2026)) && text.startsWith(shown.left(9)));
    });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->palette().color(error->foregroundRole()), HealthAppearance::red());
    EXPECT_EQ(error->text() == text, GetParam().second == 1);
    // Every line is drawn in full: none wraps further or falls below the label.
    EXPECT_GE(error->height(), error->heightForWidth(error->width()));
    EXPECT_LT(error->height(), 4 * error->fontMetrics().lineSpacing());
}

INSTANTIATE_TEST_SUITE_P(Errors, PanelError,
                         ::testing::Values(std::pair("Permission denied", 1),
                                           std::pair("The secret service refused the request. ",
                                                     12)));

TEST(PanelView, showsTheCodeSelectableInACaptionMonospacedBoldFontAfterAPlainTitle) {
    PanelFixture fixture;
    fixture.beginSignInWithCode();
    MenuBarView view(*fixture.presenter);
    const QLabel* code = labelShowing(view, [](const QString& t) { return t == "WDJB-MJHT"; });
    ASSERT_NE(code, nullptr);
    EXPECT_TRUE(code->textInteractionFlags() & Qt::TextSelectableByMouse);
    EXPECT_TRUE(QFontInfo(code->font()).fixedPitch() && code->font().bold());
    EXPECT_LT(code->font().pointSizeF(), view.font().pointSizeF());
    EXPECT_EQ(labelShowing(view, [](const QString& t) { return t == "Confirmation code"; })->font(),
              view.font());
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

// Secondary text and drawn symbols take their colours when drawn: a switch between light and
// dark (the palette change the application delivers to each window) reaches every window.
using WindowMaker = std::function<QWidget*(PanelFixture&, SettingsPresenter&)>;
class FollowsPalette : public ::testing::TestWithParam<std::pair<const char*, WindowMaker>> {};

TEST_P(FollowsPalette, redrawsInTheNewSecondaryColour) {
    PanelFixture fixture;
    SettingsPresenter settings(*fixture.state);
    const std::unique_ptr<QWidget> window(GetParam().second(fixture, settings));
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    const auto magentaPixels = [&window] {
        const QImage image = window->grab().toImage().convertToFormat(QImage::Format_RGB32);
        const auto* pixels = reinterpret_cast<const QRgb*>(image.constBits());
        return std::count_if(pixels, pixels + image.width() * image.height(), [](QRgb pixel) {
            return qRed(pixel) > 200 && qBlue(pixel) > 200 && qGreen(pixel) < 90;
        });
    };
    EXPECT_EQ(magentaPixels(), 0);
    QPalette switched = window->palette();
    switched.setColor(QPalette::PlaceholderText, Qt::magenta);
    window->setPalette(switched);
    EXPECT_GT(magentaPixels(), 20);
}

INSTANTIATE_TEST_SUITE_P(
    Windows, FollowsPalette,
    ::testing::Values(std::pair("panel", WindowMaker([](PanelFixture& f, SettingsPresenter&) {
                                    return new MenuBarView(*f.presenter);
                                })),
                      std::pair("settings", WindowMaker([](PanelFixture&, SettingsPresenter& s) {
                                    return new SettingsWindow(s);
                                })),
                      std::pair("diagnostics", WindowMaker([](PanelFixture& f, SettingsPresenter&) {
                                    return new DiagnosticsWindow(*f.state, f.harness.supervisor);
                                }))),
    [](const auto& row) { return std::string(row.param.first); });

// A theme that leaves the secondary colour faint on its window colour gets a readable one; a
// readable one is kept as the theme made it.
TEST(SecondaryTextColour, repairsOnlyAFaintSecondaryColour) {
    SecondaryTextColour keeper;
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

TEST_P(PanelAction, clickInThePanelCallsItsOperation) {
    PanelFixture fixture;
    GetParam().arrange(fixture);
    PanelWindow panel([&fixture] { return new MenuBarView(*fixture.presenter); });
    panel.setTrayMode(true);
    panel.present(QRect(400, 300, 1, 1));
    QAbstractButton* control = button(*panel.content(), GetParam().control);
    ASSERT_NE(control, nullptr) << drawnTexts(*panel.content()).join(", ").toStdString();
    QTest::mouseClick(control, Qt::LeftButton);
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return GetParam().happened(fixture); }));
    EXPECT_EQ(panel.isVisible(), !GetParam().opensWindow);
}

TEST_P(PanelAction, trayMenuEntryCallsTheSameOperation) {
    PanelFixture fixture;
    GetParam().arrange(fixture);
    TrayMenuPresenter entries(*fixture.presenter, [] { return std::make_unique<FakeTicker>(); });
    TrayMenu menu(entries);
    QAction* entry = nullptr;
    for (QAction* action : menu.actions()) {
        if (action->text() == GetParam().control && action->isVisible()) {
            entry = action;
        }
    }
    if (!entry) {
        GTEST_SKIP() << "the panel's own control";
    }
    entry->trigger();
    EXPECT_TRUE(AsyncTest::waitUntil([&] { return GetParam().happened(fixture); }));
}

INSTANTIATE_TEST_SUITE_P(
    Controls, PanelAction,
    ::testing::Values(
        ActionRow{"signIn", [](PanelFixture&) {}, "Sign In",
                  [](PanelFixture& f) { return f.harness.authorizer.startCalls.size() == 1; }},
        ActionRow{"openApprovalPage", [](PanelFixture& f) { f.beginSignInWithCode(); },
                  "Open Approval Page",
                  [](PanelFixture& f) {
                      // The first opening is the sign-in's own.
                      return f.harness.workspace.opened ==
                             QList<QUrl>(2, QUrl("https://vantrel.app/device?code=WDJB"));
                  }},
        ActionRow{"cancelSignIn", [](PanelFixture& f) { f.beginSignInWithCode(); },
                  "Cancel Sign In",
                  [](PanelFixture& f) { return !f.state->isAuthorizingDevice(); }},
        ActionRow{"openDashboard", signedIn, "Open Dashboard",
                  [](PanelFixture& f) {
                      return f.harness.workspace.opened.size() == 1 &&
                             f.harness.workspace.opened.first().path().endsWith("/dashboard");
                  }},
        ActionRow{"retryTracker",
                  [](PanelFixture& f) {
                      f.signIn();
                      f.harness.supervisor.setCrashLocked(true);
                  },
                  "Retry Tracker",
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

// Placement beside the anchor on a 1920×1080 screen whose panel takes 32 px at one edge.
struct PlacementRow {
    const char* name;
    QList<PanelPlacement::Screen> screens;
    QRect anchor;
    QPoint expected;
};

class Placement : public ::testing::TestWithParam<PlacementRow> {};

TEST_P(Placement, opensAwayFromTheNearestEdgeInsideTheAvailableArea) {
    EXPECT_EQ(PanelPlacement::topLeft(QSize(330, 400), GetParam().anchor, GetParam().screens),
              GetParam().expected);
}

const QRect full(0, 0, 1920, 1080);
const QList<PanelPlacement::Screen> topBar{{full, QRect(0, 32, 1920, 1048)}};
const QList<PanelPlacement::Screen> bottomBar{{full, QRect(0, 0, 1920, 1048)}};
const QList<PanelPlacement::Screen> leftBar{{full, QRect(48, 0, 1872, 1080)}};
const QList<PanelPlacement::Screen> rightBar{{full, QRect(0, 0, 1872, 1080)}};
// A second screen to the right, taller and offset, with its own bar at the top.
const QList<PanelPlacement::Screen> twoScreens{
    {full, QRect(0, 0, 1920, 1080)},
    {QRect(1920, -200, 2560, 1440), QRect(1920, -170, 2560, 1410)}};

INSTANTIATE_TEST_SUITE_P(
    Edges, Placement,
    ::testing::Values(
        PlacementRow{"belowAnIconAtTheTop", topBar, QRect(1000, 4, 24, 24), QPoint(846, 32)},
        PlacementRow{"aboveAnIconAtTheBottom", bottomBar, QRect(1000, 1052, 24, 24),
                     QPoint(846, 648)},
        PlacementRow{"rightOfAnIconAtTheLeft", leftBar, QRect(12, 500, 24, 24), QPoint(48, 311)},
        PlacementRow{"leftOfAnIconAtTheRight", rightBar, QRect(1884, 500, 24, 24),
                     QPoint(1542, 311)},
        PlacementRow{"clampedAtTheTopRightCorner", topBar, QRect(1900, 4, 16, 16),
                     QPoint(1590, 32)},
        // Nearer the left edge than the bottom: beside the icon, lifted above the bar.
        PlacementRow{"besideAnIconInTheBottomLeftCorner", bottomBar, QRect(2, 1060, 16, 16),
                     QPoint(22, 648)},
        PlacementRow{"cursorOnlyOnTheSecondScreen", twoScreens, QRect(3000, -190, 1, 1),
                     QPoint(2835, -170)},
        PlacementRow{"iconOnTheSecondScreensRightEdge", twoScreens, QRect(4470, 600, 8, 8),
                     QPoint(4136, 403)},
        PlacementRow{"anchorBetweenScreensUsesTheNearest", twoScreens, QRect(1919, 1200, 1, 1),
                     QPoint(1924, 840)}),
    rowName);

} // namespace

#include "ui/DiagnosticsWindow.h"

#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "ui/SymbolIcon.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace {

// A supervisor whose status command takes as long as the test wants.
class SlowSupervisor : public FakeSupervisor {
public:
    using FakeSupervisor::refreshStatus;
    QCoro::Task<void> refreshStatus() override {
        ++started;
        co_await gate.sleep(0, CancellationToken());
        setTrackerStatus(statusOnRefresh);
        ++finished;
    }
    FakeSleeper gate;
    int started = 0;
    int finished = 0;
};

struct DiagnosticsScene {
    // The window observes the state's own supervisor, or a slow one of its own.
    explicit DiagnosticsScene(bool slowRefresh = false)
        : window(*state, slowRefresh ? slow : static_cast<FakeSupervisor&>(harness.supervisor)) {
        harness.credentials.stored = "vk_live_1";
        AsyncTest::run(state->start());
        slow.gate.hold = true;
    }

    // The grid's cells as "label: value" lines, read from the widgets; a screen reader reads each
    // value with its label.
    QStringList rows() {
        auto* grid = window.findChild<QGridLayout*>();
        QStringList result;
        for (int row = 0; row < grid->rowCount(); ++row) {
            auto label = [&](int column) {
                return qobject_cast<QLabel*>(grid->itemAtPosition(row, column)->widget());
            };
            result.append(label(0)->text() + ": " + label(1)->text());
            EXPECT_EQ(label(1)->accessibleDescription(), label(0)->text());
        }
        return result;
    }
    QLabel* value(int row) {
        return qobject_cast<QLabel*>(
            window.findChild<QGridLayout*>()->itemAtPosition(row, 1)->widget());
    }
    QLabel* error() { return window.findChild<QLabel*>("error"); }
    bool showsSymbol(const QString& name) {
        const QPixmap expected = SymbolIcon::pixmap(
            name, window.palette().color(QPalette::WindowText), 28, window.devicePixelRatioF());
        return window.findChild<QLabel*>("healthIcon")->pixmap().toImage() == expected.toImage();
    }
    void click(const QString& text) {
        for (auto* button : window.findChildren<QPushButton*>()) {
            if (button->text() == text) {
                button->click();
                return;
            }
        }
        FAIL() << text.toStdString();
    }

    AppHarness harness;
    SlowSupervisor slow;
    std::unique_ptr<AppState> state = harness.make(false);
    DiagnosticsWindow window;
};

TEST(DiagnosticsWindow, ShowsEveryRowLiveTheHealthAndTheSupervisorsErrorFirst) {
    DiagnosticsScene scene;
    scene.window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&scene.window));
    EXPECT_EQ(scene.window.windowTitle(), "Vantrel Diagnostics");
    EXPECT_EQ(scene.window.size(), QSize(560, 480));
    EXPECT_EQ(scene.rows(), QStringList({"App version: development (0)", "State: Connecting",
                                         "Helper: Running", "Tracker version: Unknown",
                                         "Device identity: Unknown", "Queued heartbeats: 0",
                                         "Queued focus segments: 0", "Dropped heartbeats: 0",
                                         "Dropped focus segments: 0", "Presence coverage: Unknown",
                                         "Last successful sync: Never", "Last error kind: None"}));
    EXPECT_TRUE(scene.showsSymbol("arrow.triangle.2.circlepath"));
    QPalette switched = scene.window.palette(); // the icon is tinted anew after a theme switch
    switched.setColor(QPalette::WindowText, Qt::magenta);
    scene.window.setPalette(switched);
    EXPECT_TRUE(scene.showsSymbol("arrow.triangle.2.circlepath"));
    EXPECT_FALSE(scene.error()->isVisible());
    scene.value(0)->setSelection(0, 3); // the user is copying the app version

    // A stale report is shown as received beside a stopped helper.
    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 1234567;
    status.queuedActivitySegments = 12;
    status.droppedHeartbeats = 3;
    status.droppedActivitySegments = 4;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07.250+02:00";
    status.lastUploadErrorKind = "network";
    scene.harness.supervisor.setTrackerStatus(status);
    scene.harness.supervisor.setHelperRunning(false);
    EXPECT_EQ(scene.rows().mid(1),
              QStringList({"State: Connecting", "Helper: Stopped", "Tracker version: 2.3.0",
                           "Device identity: 6F9619FF-8B86-D011-B42D-00C04FC964FF",
                           "Queued heartbeats: 1234567", "Queued focus segments: 12",
                           "Dropped heartbeats: 3", "Dropped focus segments: 4",
                           "Presence coverage: full",
                           "Last successful sync: 2026-05-01T09:58:07.250+02:00",
                           "Last error kind: network"}));
    status.lastSuccessfulUploadAt.reset();
    scene.harness.supervisor.setTrackerStatus(status);
    EXPECT_EQ(scene.rows()[10], "Last successful sync: Never");

    // Action required without its message; the supervisor's error before the presented one.
    scene.harness.supervisor.setCrashLocked(true);
    scene.harness.supervisor.setLastError("Tracker helper exited with status 3.");
    scene.harness.installation.helper.reset();
    scene.state->startTracker("vk_live_1"); // presents the helper-missing message
    ASSERT_TRUE(scene.state->presentedError().has_value());
    EXPECT_EQ(scene.rows()[1], "State: Action required");
    EXPECT_TRUE(scene.showsSymbol("exclamationmark.triangle.fill"));
    EXPECT_TRUE(scene.error()->isVisible());
    EXPECT_EQ(scene.error()->text(), "Tracker helper exited with status 3.");
    scene.harness.supervisor.setLastError(std::nullopt);
    EXPECT_EQ(scene.error()->text(), scene.state->presentedError());
    EXPECT_EQ(scene.value(0)->selectedText().size(), 3)
        << "a value that stayed keeps its selection";
}

TEST(DiagnosticsWindow, RefreshReturnsAtOnceWhileTheHelperTakesItsTime) {
    DiagnosticsScene scene(true);
    scene.window.show();
    TrackerStatus status = sampleTrackerStatus();
    status.trackerVersion = "2.4.0";
    scene.slow.statusOnRefresh = status;

    scene.click("Refresh");
    scene.click("Refresh");
    EXPECT_EQ(scene.slow.started, 2);
    scene.click("Copy Diagnostics");
    EXPECT_EQ(scene.harness.clipboard.text, scene.state->diagnosticsReport());

    scene.slow.gate.releaseOne();
    scene.slow.gate.releaseOne();
    ASSERT_TRUE(AsyncTest::waitUntil([&] { return scene.slow.finished == 2; }));
    EXPECT_EQ(scene.rows()[3], "Tracker version: 2.4.0");
    QTest::keyClick(&scene.window, Qt::Key_Escape);
    EXPECT_FALSE(scene.window.isVisible());
}

} // namespace

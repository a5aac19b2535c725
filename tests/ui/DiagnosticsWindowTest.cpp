#include "ui/DiagnosticsWindow.h"

#include "PanelTestSupport.h"
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

// The window observes the state's health and its own, slow, supervisor's reports.
struct DiagnosticsScene : PanelFixture {
    DiagnosticsScene() {
        signIn();
        slow.gate.hold = true;
    }

    QLabel* cell(int row, int column) {
        return qobject_cast<QLabel*>(
            window.findChild<QGridLayout*>()->itemAtPosition(row, column)->widget());
    }
    // The grid's cells as "label: value" lines; a screen reader reads each value with its label.
    QStringList rows() {
        QStringList result;
        for (int row = 0; row < window.findChild<QGridLayout*>()->rowCount(); ++row) {
            result.append(cell(row, 0)->text() + ": " + cell(row, 1)->text());
            EXPECT_EQ(cell(row, 1)->accessibleDescription(), cell(row, 0)->text());
        }
        return result;
    }
    QLabel* error() { return window.findChild<QLabel*>("error"); }
    bool showsSymbol(const QString& name) {
        const QPixmap expected = SymbolIcon::pixmap(
            name, window.palette().color(QPalette::WindowText), 28, window.devicePixelRatioF());
        return window.findChild<QLabel*>("healthIcon")->pixmap().toImage() == expected.toImage();
    }
    void click(const QString& text) { shown<QPushButton>(window, text)->click(); }

    SlowSupervisor slow;
    DiagnosticsWindow window{*state, slow};
};

TEST(DiagnosticsWindow, ShowsEveryRowLiveTheHealthAndTheSupervisorsErrorFirst) {
    DiagnosticsScene scene;
    scene.window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&scene.window));
    EXPECT_EQ(scene.rows(), QStringList({"App version: development (0)", "State: Connecting",
                                         "Helper: Stopped", "Tracker version: Unknown",
                                         "Device identity: Unknown", "Queued heartbeats: 0",
                                         "Queued focus segments: 0", "Dropped heartbeats: 0",
                                         "Dropped focus segments: 0", "Presence coverage: Unknown",
                                         "Last successful sync: Never", "Last error kind: None"}));
    EXPECT_TRUE(scene.showsSymbol("arrow.triangle.2.circlepath"));
    // The title stands out from the rows.
    EXPECT_GT(shown<QLabel>(scene.window, "Diagnostics")->font().pointSizeF(),
              scene.cell(0, 1)->font().pointSizeF() * 1.2);
    QPalette switched = scene.window.palette(); // the icon is tinted anew after a theme switch
    switched.setColor(QPalette::WindowText, Qt::magenta);
    scene.window.setPalette(switched);
    EXPECT_TRUE(scene.showsSymbol("arrow.triangle.2.circlepath"));
    EXPECT_FALSE(scene.error()->isVisible());
    scene.cell(0, 1)->setSelection(0, 3); // the user is copying the app version

    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 1234567;
    status.queuedActivitySegments = 12;
    status.droppedHeartbeats = 3;
    status.droppedActivitySegments = 4;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07.250+02:00";
    status.lastUploadErrorKind = "network";
    scene.slow.setTrackerStatus(status);
    scene.slow.setHelperRunning(true);
    EXPECT_EQ(scene.rows().mid(1),
              QStringList({"State: Connecting", "Helper: Running", "Tracker version: 2.3.0",
                           "Device identity: 6F9619FF-8B86-D011-B42D-00C04FC964FF",
                           "Queued heartbeats: 1234567", "Queued focus segments: 12",
                           "Dropped heartbeats: 3", "Dropped focus segments: 4",
                           "Presence coverage: full",
                           "Last successful sync: 2026-05-01T09:58:07.250+02:00",
                           "Last error kind: network"}));
    status.lastSuccessfulUploadAt.reset();
    scene.slow.setTrackerStatus(status);
    EXPECT_EQ(scene.rows()[10], "Last successful sync: Never");

    // Action required without its message; the supervisor's error before the presented one.
    scene.harness.supervisor.setCrashLocked(true);
    scene.slow.setLastError("Tracker helper exited with status 3.");
    scene.harness.installation.helper.reset();
    scene.state->startTracker("vk_live_1"); // presents the helper-missing message
    ASSERT_TRUE(scene.state->presentedError().has_value());
    EXPECT_EQ(scene.rows()[1], "State: Action required");
    EXPECT_TRUE(scene.showsSymbol("exclamationmark.triangle.fill"));
    EXPECT_TRUE(scene.error()->isVisible());
    EXPECT_EQ(scene.error()->text(), "Tracker helper exited with status 3.");
    scene.slow.setLastError(std::nullopt);
    EXPECT_EQ(scene.error()->text(), scene.state->presentedError());
    EXPECT_EQ(scene.cell(0, 1)->selectedText().size(), 3)
        << "a value that stayed keeps its selection";
    scene.harness.credentials.failDelete = -128; // an error of its own, the health unchanged
    AsyncTest::run(scene.state->signOut());
    EXPECT_EQ(scene.error()->text(), scene.state->presentedError());

    // Refresh returns at once while the helper takes its time.
    scene.slow.statusOnRefresh = status;
    scene.slow.statusOnRefresh->trackerVersion = "2.4.0";
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

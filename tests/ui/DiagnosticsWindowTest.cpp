#include "ui/DiagnosticsWindow.h"

#include "support/AppFakes.h"
#include "support/AsyncTest.h"

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

    // The grid's cells as "label: value" lines, read from the widgets.
    QStringList rows() {
        auto* grid = window.findChild<QGridLayout*>();
        QStringList result;
        for (int row = 0; row < grid->rowCount(); ++row) {
            auto text = [&](int column) {
                return qobject_cast<QLabel*>(grid->itemAtPosition(row, column)->widget())->text();
            };
            result.append(text(0) + ": " + text(1));
        }
        return result;
    }
    QLabel* value(int row) {
        return qobject_cast<QLabel*>(
            window.findChild<QGridLayout*>()->itemAtPosition(row, 1)->widget());
    }
    QLabel* error() { return window.findChild<QLabel*>("error"); }
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

TEST(DiagnosticsWindow, ShowsTheTwelveRowsLiveAndOnlyTheSupervisorsError) {
    DiagnosticsScene scene;
    scene.window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&scene.window));
    EXPECT_EQ(scene.window.windowTitle(), "Vantrel Diagnostics");
    EXPECT_EQ(scene.window.size(), QSize(560, 480));
    const QStringList empty = scene.rows();
    ASSERT_EQ(empty.size(), 12);
    EXPECT_EQ(empty[3], "Tracker version: Unknown");
    EXPECT_EQ(empty[10], "Last successful sync: Never");
    EXPECT_FALSE(scene.error()->isVisible());
    scene.value(0)->setSelection(0, 3); // the user is copying the app version

    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 1234567;
    scene.harness.supervisor.setTrackerStatus(status);
    scene.harness.supervisor.setLastError("Tracker helper exited with status 3.");
    scene.harness.installation.helper.reset();
    scene.state->startTracker("vk_live_1");

    const QStringList filled = scene.rows();
    EXPECT_EQ(filled[3], "Tracker version: 2.3.0");
    EXPECT_EQ(filled[5], "Queued heartbeats: 1234567");
    EXPECT_TRUE(scene.error()->isVisible());
    EXPECT_EQ(scene.error()->text(), "Tracker helper exited with status 3.");
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

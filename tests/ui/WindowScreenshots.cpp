// Renders the Settings and Diagnostics windows over test fakes into PNG files for the README:
//   window_screenshots <output directory>
// Not a test; scripts/make-screenshots.sh runs it offscreen.
#include "support/AppFakes.h"
#include "support/AsyncTest.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QToolButton>

#include <cstdio>
#include <cstdlib>

namespace {

struct Fixture {
    explicit Fixture(bool signedIn) {
        harness.installation.version = "0.6.1";
        harness.installation.build = "42";
        if (signedIn) {
            harness.credentials.stored = "vk_screenshot_only";
            AsyncTest::run(state->start());
        }
    }
    AppHarness harness;
    std::unique_ptr<AppState> state = harness.make(false);
};

TrackerStatus trackingStatus() {
    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 3;
    status.queuedActivitySegments = 1;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07Z";
    return status;
}

bool save(QWidget& window, const QString& path) {
    window.show();
    AsyncTest::spin(std::chrono::milliseconds(50));
    const bool saved = window.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
    window.close();
    return saved;
}

void expandAdvanced(SettingsWindow& window) {
    window.findChild<QToolButton*>()->setChecked(true);
}

} // namespace

int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: window_screenshots <output directory>\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    bool ok = true;

    {
        Fixture fixture(false);
        SettingsPresenter presenter(*fixture.state);
        SettingsWindow settings(presenter);
        ok &= save(settings, out.filePath("settings-signed-out.png"));
        DiagnosticsWindow diagnostics(*fixture.state, fixture.harness.supervisor);
        ok &= save(diagnostics, out.filePath("diagnostics-signed-out.png"));
    }
    {
        Fixture fixture(true);
        fixture.harness.supervisor.setTrackerStatus(trackingStatus());
        SettingsPresenter presenter(*fixture.state);
        SettingsWindow settings(presenter);
        expandAdvanced(settings);
        ok &= save(settings, out.filePath("settings-signed-in.png"));
        DiagnosticsWindow diagnostics(*fixture.state, fixture.harness.supervisor);
        ok &= save(diagnostics, out.filePath("diagnostics-signed-in.png"));
    }
    {
        Fixture fixture(true);
        TrackerStatus status = trackingStatus();
        status.lastUploadErrorKind = "network";
        fixture.harness.supervisor.setTrackerStatus(status);
        fixture.harness.supervisor.setCrashLocked(true);
        fixture.harness.supervisor.setLastError("Tracker helper exited with status 3.");
        SettingsPresenter presenter(*fixture.state);
        SettingsWindow settings(presenter);
        settings.show();
        expandAdvanced(settings);
        settings.findChild<QLineEdit*>("serverURL")->setText("http://vantrel.internal/api");
        settings.presenter().save();
        ok &= save(settings, out.filePath("settings-error.png"));
        DiagnosticsWindow diagnostics(*fixture.state, fixture.harness.supervisor);
        ok &= save(diagnostics, out.filePath("diagnostics-error.png"));
    }
    return ok ? 0 : 1;
}

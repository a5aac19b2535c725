// Renders the panel in each health state and while signing in, and the Settings and Diagnostics
// windows, over test fakes into PNG files for the README. Not a test; scripts/make-screenshots.sh
// runs it offscreen:
//   screenshots <output directory>
#include "PanelTestSupport.h"
#include "ui/DiagnosticsWindow.h"
#include "ui/MenuBarView.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QToolButton>

#include <cstdio>
#include <functional>

namespace {

QDir out;
bool allSaved = true;

void save(QWidget& window, const QString& name) {
    window.show();
    AsyncTest::spin(std::chrono::milliseconds(50));
    const QString path = out.filePath(name + ".png");
    const bool saved = window.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
    allSaved &= saved;
    window.close();
}

void tracking(PanelFixture& f) {
    f.signIn();
    f.harness.supervisor.setHelperRunning(true);
    f.reportStatus([](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T09:57:30Z"; });
    f.harness.poller.onUpdate(TodaySummary{"3 hrs 25 mins", 12300});
}

void savePanel(const QString& name, const std::function<void(PanelFixture&)>& arrange) {
    PanelFixture fixture;
    arrange(fixture);
    MenuBarView view(*fixture.presenter);
    view.setAttribute(Qt::WA_DontShowOnScreen);
    view.show();
    view.adjustSize();
    save(view, "panel-" + name);
}

// Settings, its advanced section open when signed in, then Diagnostics; `failing` adds a
// stopped helper and a failed save.
void saveWindows(const QString& name, bool signedIn, bool failing = false) {
    AppHarness harness;
    harness.installation.version = "0.6.1";
    harness.installation.build = "42";
    const std::unique_ptr<AppState> state = harness.make(false);
    SettingsPresenter presenter(*state);
    SettingsWindow settings(presenter);
    settings.show();
    settings.findChild<QToolButton*>()->setChecked(signedIn);
    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 3;
    status.queuedActivitySegments = 1;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07Z";
    if (signedIn) {
        harness.credentials.stored = "vk_screenshot_only";
        AsyncTest::run(state->start());
        harness.supervisor.setTrackerStatus(status);
    }
    if (failing) {
        status.lastUploadErrorKind = "network";
        harness.supervisor.setTrackerStatus(status);
        harness.supervisor.setCrashLocked(true);
        harness.supervisor.setLastError("Tracker helper exited with status 3.");
        settings.findChild<QLineEdit*>("serverURL")->setText("http://vantrel.internal/api");
        presenter.save();
    }
    DiagnosticsWindow diagnostics(*state, harness.supervisor);
    save(settings, "settings-" + name);
    save(diagnostics, "diagnostics-" + name);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: screenshots <output directory>\n");
        return 2;
    }
    out = QDir(QString::fromLocal8Bit(argv[1]));
    savePanel("sign-in-required", [](PanelFixture&) {});
    savePanel("connecting", [](PanelFixture& f) { f.signIn(); });
    savePanel("tracking", tracking);
    savePanel("offline", [](PanelFixture& f) {
        tracking(f);
        f.reportStatus([](TrackerStatus& s) {
            s.lastSuccessfulUploadAt = "2024-05-01T09:12:00Z";
            s.lastUploadErrorKind = "network";
        });
    });
    savePanel("action-required", [](PanelFixture& f) {
        tracking(f);
        f.harness.supervisor.setCrashLocked(true);
    });
    savePanel("signing-in", [](PanelFixture& f) { f.beginSignInWithCode(845); });
    saveWindows("signed-out", false);
    saveWindows("signed-in", true);
    saveWindows("error", true, true);
    return allSaved ? 0 : 1;
}

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

bool save(QWidget& window, const QString& path) {
    window.show();
    AsyncTest::spin(std::chrono::milliseconds(50));
    const bool saved = window.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
    window.close();
    return saved;
}

void tracking(PanelFixture& f) {
    f.signIn();
    f.harness.supervisor.setHelperRunning(true);
    f.reportStatus([](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T09:57:30Z"; });
    f.harness.poller.onUpdate(TodaySummary{"3 hrs 25 mins", 12300});
}

bool savePanels(const QDir& out) {
    const QList<std::pair<QString, std::function<void(PanelFixture&)>>> states = {
        {"sign-in-required", [](PanelFixture&) {}},
        {"connecting", [](PanelFixture& f) { f.signIn(); }},
        {"tracking", tracking},
        {"offline",
         [](PanelFixture& f) {
             tracking(f);
             f.reportStatus([](TrackerStatus& s) {
                 s.lastSuccessfulUploadAt = "2024-05-01T09:12:00Z";
                 s.lastUploadErrorKind = "network";
             });
         }},
        {"action-required",
         [](PanelFixture& f) {
             tracking(f);
             f.harness.supervisor.setCrashLocked(true);
         }},
        {"signing-in", [](PanelFixture& f) { f.beginSignInWithCode(845); }},
    };
    bool ok = true;
    for (const auto& [name, arrange] : states) {
        PanelFixture fixture;
        arrange(fixture);
        MenuBarView view(*fixture.presenter);
        view.setAttribute(Qt::WA_DontShowOnScreen);
        view.show();
        view.adjustSize();
        ok &= save(view, out.filePath(QStringLiteral("panel-%1.png").arg(name)));
    }
    return ok;
}

TrackerStatus trackingStatus() {
    TrackerStatus status = sampleTrackerStatus();
    status.queuedHeartbeats = 3;
    status.queuedActivitySegments = 1;
    status.lastSuccessfulUploadAt = "2026-05-01T09:58:07Z";
    return status;
}

struct WindowFixture {
    explicit WindowFixture(bool signedIn) {
        harness.installation.version = "0.6.1";
        harness.installation.build = "42";
        if (signedIn) {
            harness.credentials.stored = "vk_screenshot_only";
            AsyncTest::run(state->start());
            harness.supervisor.setTrackerStatus(trackingStatus());
        }
    }
    // Settings with its advanced section open (and `edit` applied), then Diagnostics.
    bool save(const QDir& out, const QString& name, bool advanced,
              const std::function<void(SettingsWindow&)>& edit = {}) {
        SettingsWindow settings(presenter);
        if (edit) {
            settings.show();
        }
        settings.findChild<QToolButton*>()->setChecked(advanced);
        if (edit) {
            edit(settings);
        }
        DiagnosticsWindow diagnostics(*state, harness.supervisor);
        return ::save(settings, out.filePath("settings-" + name + ".png")) &
               ::save(diagnostics, out.filePath("diagnostics-" + name + ".png"));
    }
    AppHarness harness;
    std::unique_ptr<AppState> state = harness.make(false);
    SettingsPresenter presenter{*state};
};

bool saveWindows(const QDir& out) {
    bool ok = WindowFixture(false).save(out, "signed-out", false);
    ok &= WindowFixture(true).save(out, "signed-in", true);
    WindowFixture failing(true);
    TrackerStatus status = trackingStatus();
    status.lastUploadErrorKind = "network";
    failing.harness.supervisor.setTrackerStatus(status);
    failing.harness.supervisor.setCrashLocked(true);
    failing.harness.supervisor.setLastError("Tracker helper exited with status 3.");
    return ok & failing.save(out, "error", true, [](SettingsWindow& settings) {
        settings.findChild<QLineEdit*>("serverURL")->setText("http://vantrel.internal/api");
        settings.presenter().save();
    });
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: screenshots <output directory>\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    const bool panels = savePanels(out);
    return panels & saveWindows(out) ? 0 : 1;
}

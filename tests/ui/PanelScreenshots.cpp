// Renders the panel over fakes in each health state and while signing in, for the README:
//   panel_screenshots <output directory>
#include "PanelTestSupport.h"
#include "ui/MenuBarView.h"

#include <QApplication>
#include <QDir>
#include <QPainter>

#include <cstdio>
#include <functional>

namespace {

void tracking(PanelFixture& f) {
    f.signIn();
    f.harness.supervisor.setHelperRunning(true);
    f.reportStatus([](TrackerStatus& s) { s.lastSuccessfulUploadAt = "2024-05-01T09:57:30Z"; });
    f.harness.poller.onUpdate(TodaySummary{"3 hrs 25 mins", 12300});
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QDir output(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("."));
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
    for (const auto& [name, arrange] : states) {
        PanelFixture fixture;
        arrange(fixture);
        MenuBarView view(*fixture.presenter);
        view.setAttribute(Qt::WA_DontShowOnScreen);
        view.show();
        view.adjustSize();
        const QString path = output.filePath(QStringLiteral("panel-%1.png").arg(name));
        if (!view.grab().save(path)) {
            std::fprintf(stderr, "could not write %s\n", qPrintable(path));
            return 1;
        }
        std::printf("%s\n", qPrintable(path));
    }
    return 0;
}

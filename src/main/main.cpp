#include "app/AppState.h"
#include "main/CompositionRoot.h"
#include "main/TerminationSignalWatcher.h"
#include "ui/ConsoleStatusView.h"

#include <QApplication>
#include <QFile>

#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv) {
    // Without any display (a server, a test run) the application still runs its logic.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM") && !qEnvironmentVariableIsSet("DISPLAY") &&
        !qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vantrel"));
    QApplication::setApplicationName(QStringLiteral("Vantrel"));
    QApplication::setQuitOnLastWindowClosed(false);

    // Under a test runner the application comes up without touching the system.
    const bool isRunningTests = qEnvironmentVariableIsSet("XCTestConfigurationFilePath");
    CompositionRoot root;
    AppState& state = root.makeAppState(!isRunningTests);
    TerminationSignalWatcher termination([&state] { state.quit(); });

    std::fputs("Vantrel runs without its tray panel and windows for now; its status follows. "
               "Press Ctrl+C to quit.\n",
               stderr);
    QFile console;
    // By descriptor, so each line reaches a pipe or file at once rather than sitting in stdio's
    // buffer.
    console.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
    ConsoleStatusView view(state, console);
    return QApplication::exec();
}

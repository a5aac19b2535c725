#include "app/AppState.h"
#include "main/CompositionRoot.h"
#include "main/DesktopScenes.h"
#include "main/HeapTrimmer.h"
#include "main/TerminationSignalWatcher.h"
#include "ui/ConsoleStatusView.h"
#include "ui/FreedesktopApplicationAdaptor.h"
#include "ui/QApplicationController.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>

#include <cstdio>
#include <memory>
#include <optional>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// The API key passes through this process's memory, so a crash must not write that memory to a
// core file, and another process of the same user must not read it through ptrace or /proc/PID/mem.
// A debugger started with the application, or one run as root, still attaches. The helper
// inherits the zero core limit; it holds the same key.
void keepMemoryPrivate() {
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
}

const QString applicationInterface = QStringLiteral("org.freedesktop.Application");

// Hands the start over to the copy that owns the application's bus name. False when none
// answers.
bool forwardToRunningCopy(QDBusConnection& bus, const std::optional<QString>& action) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QLatin1String(DesktopScenes::applicationId), QLatin1String(DesktopScenes::objectPath),
        applicationInterface,
        action ? QStringLiteral("ActivateAction") : QStringLiteral("Activate"));
    if (action) {
        call << *action << QVariantList() << QVariantMap();
    } else {
        call << QVariantMap();
    }
    return bus.call(call, QDBus::Block, 10000).type() == QDBusMessage::ReplyMessage;
}

// The windows' actions need the views; signing in and out and quitting work without a display
// too, which is how a headless session or a script drives the application.
bool performAction(AppState* state, DesktopScenes* scenes, const QString& action) {
    if (scenes && scenes->activateAction(action)) {
        return true;
    }
    if (!state) {
        return false;
    }
    if (action == QLatin1String("sign-in")) {
        state->beginDeviceAuthorization();
    } else if (action == QLatin1String("sign-out")) {
        state->signOut();
    } else if (action == QLatin1String("quit")) {
        state->quit();
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    keepMemoryPrivate();
    // Without any display (a server, a test run) the application still runs its logic.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM") && !qEnvironmentVariableIsSet("DISPLAY") &&
        !qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vantrel"));
    QApplication::setApplicationName(QStringLiteral("Vantrel"));
    // No display name of its own: Qt would append it to every window title that does not end
    // with it ("Vantrel Settings — Vantrel"). Where one is asked for, the application name serves.
    QGuiApplication::setDesktopFileName(QLatin1String(DesktopScenes::applicationId));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption actionOption(
        QStringLiteral("action"),
        QStringLiteral("Perform an action of the running copy: settings, diagnostics, sign-in, "
                       "sign-out or quit."),
        QStringLiteral("name"));
    parser.addOption(actionOption);
    parser.process(app);
    const std::optional<QString> action =
        parser.isSet(actionOption) ? std::optional(parser.value(actionOption)) : std::nullopt;

    // Everything a start or another program may ask of the running copy; requests that arrive
    // before the views exist are answered without effect.
    AppState* appState = nullptr;
    std::unique_ptr<DesktopScenes> scenes;
    QObject service;
    new FreedesktopApplicationAdaptor(&service, {.activate =
                                                     [&scenes] {
                                                         if (scenes) {
                                                             scenes->activate();
                                                         }
                                                     },
                                                 .activateAction =
                                                     [&scenes, &appState](const QString& name) {
                                                         return performAction(appState,
                                                                              scenes.get(), name);
                                                     }});

    // One copy per session: the first owns the bus name, a later start hands over and leaves, so
    // a start at login and one from the menu never run two supervisors.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        bus.registerObject(QLatin1String(DesktopScenes::objectPath), &service);
        if (!bus.registerService(QLatin1String(DesktopScenes::applicationId))) {
            bus.unregisterObject(QLatin1String(DesktopScenes::objectPath));
            if (forwardToRunningCopy(bus, action)) {
                return 0;
            }
            std::fputs("Vantrel is already running but does not answer.\n", stderr);
            return 1;
        }
    }
    if (action == QLatin1String("quit")) {
        return 0; // nothing runs that could quit
    }

    // Under a test runner the application comes up without touching the system.
    const bool isRunningTests = qEnvironmentVariableIsSet("XCTestConfigurationFilePath");
    CompositionRoot root;
    AppState& state = root.makeAppState(!isRunningTests);
    appState = &state;
    HeapTrimmer heapTrimmer;
    QObject::connect(&state, &AppState::isStartingChanged, &heapTrimmer, [&state, &heapTrimmer] {
        if (!state.isStarting()) {
            heapTrimmer.schedule();
        }
    });
    TerminationSignalWatcher termination([&state] { state.quit(); });

    const QString platform = QGuiApplication::platformName();
    std::unique_ptr<ConsoleStatusView> console;
    QFile consoleFile;
    if (platform != QLatin1String("offscreen") && platform != QLatin1String("minimal")) {
        scenes = std::make_unique<DesktopScenes>(state, root.applicationController(), heapTrimmer);
    } else {
        // The status lines are for running without any display.
        std::fputs("Vantrel runs without a display; its status follows. Press Ctrl+C to quit.\n",
                   stderr);
        // By descriptor, so each line reaches a pipe or file at once rather than sitting in
        // stdio's buffer.
        consoleFile.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered);
        console = std::make_unique<ConsoleStatusView>(state, consoleFile);
    }
    if (action) {
        performAction(&state, scenes.get(), *action);
    }
    const int status = QApplication::exec();
    scenes.reset(); // before the AppState the views observe
    return status;
}

#include "ui/QApplicationController.h"

#include <QGuiApplication>
#include <QWindow>

void QApplicationController::activate() {
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        if (window->isVisible()) {
            window->raise();
            window->requestActivate();
        }
    }
}

void QApplicationController::showSettingsWindow() {
    if (settingsWindowOpener) {
        settingsWindowOpener();
    }
}

void QApplicationController::terminate() {
    QCoreApplication::quit();
}

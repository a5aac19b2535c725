#include "ui/TrayIconPresenter.h"

#include "app/AppState.h"

#include <QCoreApplication>
#include <QEvent>

TrayIconPresenter::TrayIconPresenter(AppState& appState, QObject* parent)
    : QObject(parent)
    , m_appState(appState)
    , m_health(appState.health()) {
    connect(&m_appState, &AppState::healthChanged, this, &TrayIconPresenter::update);
    QCoreApplication::instance()->installEventFilter(this);
}

bool TrayIconPresenter::eventFilter(QObject* watched, QEvent* event) {
    if (watched == QCoreApplication::instance() &&
        event->type() == QEvent::ApplicationPaletteChange) {
        Q_EMIT changed();
    }
    return false;
}

void TrayIconPresenter::update() {
    const TrackerHealth health = m_appState.health();
    // The message of an action-required state is not shown on the icon.
    if (health.kind() != m_health.kind()) {
        m_health = health;
        Q_EMIT changed();
    }
}

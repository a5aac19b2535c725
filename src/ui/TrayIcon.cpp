#include "ui/TrayIcon.h"

#include "ui/PanelWindow.h"
#include "ui/TrayIconArtwork.h"
#include "ui/TrayIconPresenter.h"
#include "ui/TrayMenu.h"

#include <QCursor>
#include <QGuiApplication>

TrayIcon::TrayIcon(TrayIconPresenter& presenter, TrayMenu& menu, PanelWindow& panel,
                   QObject* parent)
    : QObject(parent)
    , m_presenter(presenter)
    , m_panel(panel) {
    m_icon.setContextMenu(&menu);
    connect(&menu, &TrayMenu::openRequested, this, [this] { m_panel.present(anchor()); });
    connect(&m_icon, &QSystemTrayIcon::activated, this, &TrayIcon::onActivated);
    connect(&m_presenter, &TrayIconPresenter::changed, this, &TrayIcon::render);
    render();
    m_icon.show();
}

void TrayIcon::render() {
    m_icon.setIcon(TrayIconArtwork::icon(m_presenter.healthKind(), QGuiApplication::palette()));
    m_icon.setToolTip(m_presenter.toolTip());
}

void TrayIcon::onActivated(QSystemTrayIcon::ActivationReason reason) {
    // A double click arrives after its first click's trigger; toggling again would undo it.
    if (reason == QSystemTrayIcon::Trigger) {
        m_panel.toggle(anchor());
    }
}

QRect TrayIcon::anchor() const {
    // StatusNotifierItem hosts keep the icon's geometry to themselves; the cursor is where the
    // click happened.
    const QRect geometry = m_icon.geometry();
    return geometry.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : geometry;
}

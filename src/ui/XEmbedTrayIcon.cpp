#include "ui/XEmbedTrayIcon.h"

#include "ui/TrayIconArtwork.h"
#include "ui/TrayIconPresenter.h"
#include "ui/TrayMenu.h"

#include <QCursor>
#include <QGuiApplication>

XEmbedTrayIcon::XEmbedTrayIcon(TrayIconPresenter& presenter, TrayMenu& menu, Activation activate,
                               QObject* parent)
    : QObject(parent)
    , m_presenter(presenter)
    , m_activate(std::move(activate)) {
    m_icon.setContextMenu(&menu);
    connect(&m_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                // A double click arrives after its first click's trigger; toggling again would
                // undo it.
                if (reason == QSystemTrayIcon::Trigger) {
                    const QRect geometry = m_icon.geometry();
                    m_activate(geometry.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : geometry);
                }
            });
    connect(&m_presenter, &TrayIconPresenter::changed, this, &XEmbedTrayIcon::render);
    render();
    m_icon.show();
}

void XEmbedTrayIcon::render() {
    m_icon.setIcon(TrayIconArtwork::icon(m_presenter.healthKind(), QGuiApplication::palette()));
    m_icon.setToolTip(m_presenter.toolTip());
}

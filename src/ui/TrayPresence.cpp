#include "ui/TrayPresence.h"

#include "ui/PanelWindow.h"
#include "ui/TrayHostWatching.h"
#include "ui/TrayIcon.h"

#include <QCursor>

TrayPresence::TrayPresence(TrayHostWatching& host, TrayIconPresenter& presenter, TrayMenu& menu,
                           PanelWindow& panel, QObject* parent)
    : QObject(parent)
    , m_presenter(presenter)
    , m_menu(menu)
    , m_panel(panel) {
    connect(&host, &TrayHostWatching::availabilityChanged, this, &TrayPresence::follow);
    follow(host.isAvailable());
}

TrayPresence::~TrayPresence() = default;

void TrayPresence::activate() {
    m_panel.present(QRect(QCursor::pos(), QSize(1, 1)));
}

void TrayPresence::follow(bool available) {
    if (available == hasTrayIcon()) {
        if (!available && !m_panel.isVisible()) {
            m_panel.present({});
        }
        return;
    }
    if (available) {
        m_panel.hide();
        m_panel.setTrayMode(true);
        m_icon = std::make_unique<TrayIcon>(m_presenter, m_menu, m_panel);
    } else {
        m_icon.reset();
        m_panel.setTrayMode(false);
        m_panel.present({});
    }
}

#include "ui/TrayPresence.h"

#include "ui/PanelWindow.h"
#include "ui/TrayHostWatching.h"

#include <QCursor>

TrayPresence::TrayPresence(TrayHostWatching& statusNotifier, TrayHostWatching& xembed,
                           PanelWindow& panel, IconFactory makeIcon, QObject* parent)
    : QObject(parent)
    , m_statusNotifier(statusNotifier)
    , m_xembed(xembed)
    , m_panel(panel)
    , m_makeIcon(std::move(makeIcon)) {
    connect(&m_statusNotifier, &TrayHostWatching::availabilityChanged, this, &TrayPresence::follow);
    connect(&m_xembed, &TrayHostWatching::availabilityChanged, this, &TrayPresence::follow);
    follow();
}

TrayPresence::~TrayPresence() = default;

void TrayPresence::activate() {
    m_panel.present(QRect(QCursor::pos(), QSize(1, 1)));
}

void TrayPresence::toggleAt(QPoint position) {
    m_panel.toggleAt(position);
}

void TrayPresence::toggleBeside(const QRect& anchor) {
    m_panel.toggle(anchor);
}

void TrayPresence::follow() {
    // Where both exist (XFCE's panel hosts both), the StatusNotifierItem shows our own drawing
    // crisply and tells where it was clicked.
    const Host wanted = m_statusNotifier.isAvailable() ? Host::statusNotifier
                        : m_xembed.isAvailable()       ? Host::xembed
                                                       : Host::none;
    if (wanted == m_host) {
        if (wanted == Host::none && !m_panel.isVisible()) {
            m_panel.present({});
        }
        return;
    }
    m_icon.reset();
    const bool hadTray = m_host != Host::none;
    m_host = wanted;
    if (wanted == Host::none) {
        m_panel.setTrayMode(false);
        m_panel.present({});
        return;
    }
    m_icon = m_makeIcon(wanted);
    if (!hadTray) {
        // The icon exists before the window goes, so there is no moment with neither.
        m_panel.hide();
        m_panel.setTrayMode(true);
    }
}

#include "ui/XEmbedTrayHostWatcher.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <cstdlib>
#include <xcb/xcb.h>

namespace {

std::uint32_t atom(xcb_connection_t* connection, const QByteArray& name) {
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, quint16(name.size()), name.constData()),
        nullptr);
    const std::uint32_t result = reply ? reply->atom : std::uint32_t(XCB_ATOM_NONE);
    std::free(reply);
    return result;
}

} // namespace

XEmbedTrayHostWatcher::XEmbedTrayHostWatcher(QObject* parent)
    : TrayHostWatching(parent) {
    const auto* x11 =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) {
        return;
    }
    m_connection = x11->connection();
    // Qt shows its windows on the display's default screen, the only one desktops have had since
    // multi-head became one big screen.
    m_selection = atom(m_connection, QByteArrayLiteral("_NET_SYSTEM_TRAY_S0"));
    m_manager = atom(m_connection, QByteArrayLiteral("MANAGER"));
    QCoreApplication::instance()->installNativeEventFilter(this);
    follow();
}

XEmbedTrayHostWatcher::~XEmbedTrayHostWatcher() {
    if (m_connection) {
        QCoreApplication::instance()->removeNativeEventFilter(this);
    }
}

bool XEmbedTrayHostWatcher::nativeEventFilter(const QByteArray& eventType, void* message,
                                              qintptr*) {
    if (eventType != "xcb_generic_event_t") {
        return false;
    }
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    switch (event->response_type & 0x7f) {
    case XCB_CLIENT_MESSAGE: {
        const auto* client = static_cast<const xcb_client_message_event_t*>(message);
        if (client->type == m_manager && client->data.data32[1] == m_selection) {
            follow();
        }
        break;
    }
    case XCB_DESTROY_NOTIFY:
        if (static_cast<const xcb_destroy_notify_event_t*>(message)->window == m_owner) {
            follow();
        }
        break;
    default:
        break;
    }
    return false; // Qt's own tray tracking sees the same events
}

void XEmbedTrayHostWatcher::follow() {
    const bool wasAvailable = isAvailable();
    std::uint32_t current = owner();
    // Ask for the owner's destruction, then look again: an owner that went in between would
    // otherwise never report it.
    while (current != XCB_WINDOW_NONE) {
        const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        const xcb_void_cookie_t cookie =
            xcb_change_window_attributes_checked(m_connection, current, XCB_CW_EVENT_MASK, &mask);
        xcb_discard_reply(m_connection, cookie.sequence);
        const std::uint32_t again = owner();
        if (again == current) {
            break;
        }
        current = again;
    }
    m_owner = current;
    if (isAvailable() != wasAvailable) {
        Q_EMIT availabilityChanged(isAvailable());
    }
}

std::uint32_t XEmbedTrayHostWatcher::owner() const {
    xcb_get_selection_owner_reply_t* reply = xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_selection), nullptr);
    const std::uint32_t result = reply ? reply->owner : std::uint32_t(XCB_WINDOW_NONE);
    std::free(reply);
    return result;
}

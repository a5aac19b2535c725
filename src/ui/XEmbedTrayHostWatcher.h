#pragma once

#include "ui/TrayHostWatching.h"

#include <QAbstractNativeEventFilter>

#include <cstdint>

struct xcb_connection_t;

// An XEmbed tray exists while some client owns the screen's _NET_SYSTEM_TRAY_S<n> selection.
// Followed through the X server's own notices, not by asking again and again: a new tray
// announces itself with a MANAGER message to the root window (which Qt already listens on),
// and the owner's window is watched for its destruction. Never available off X11.
class XEmbedTrayHostWatcher : public TrayHostWatching, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    explicit XEmbedTrayHostWatcher(QObject* parent = nullptr);
    ~XEmbedTrayHostWatcher() override;

    bool isAvailable() const override { return m_owner != 0; }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    void follow();
    std::uint32_t owner() const;

    xcb_connection_t* m_connection = nullptr;
    std::uint32_t m_selection = 0;
    std::uint32_t m_manager = 0;
    std::uint32_t m_owner = 0;
};

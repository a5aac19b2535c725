#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

// Where the tray panel opens: beside its anchor (the tray icon's geometry, or a 1×1 rectangle at
// the cursor when the tray gives none), away from whichever screen edge is nearest, and kept
// inside that screen's available area.
class PanelPlacement {
public:
    struct Screen {
        QRect geometry;
        QRect availableGeometry;
    };

    // What the panel opens beside: the icon's geometry where the tray gives one (XEmbed trays),
    // else the position the tray host reported with the click, else the cursor. Hosts that know
    // no position report (0, 0), which counts as none.
    static QRect anchor(const QRect& iconGeometry, const std::optional<QPoint>& hostPosition,
                        const QPoint& cursor);

    // The panel's top-left corner. The screen is the one holding the anchor's centre, else the
    // nearest one.
    static QPoint topLeft(const QSize& panel, const QRect& anchor, const QList<Screen>& screens);

    // The gap between the anchor and the panel.
    static constexpr int gap = 4;
};

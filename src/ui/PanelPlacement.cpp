#include "ui/PanelPlacement.h"

#include <algorithm>
#include <limits>

namespace {

qint64 distanceSquared(const QRect& rect, const QPoint& point) {
    const qint64 dx = std::max({rect.left() - point.x(), 0, point.x() - rect.right()});
    const qint64 dy = std::max({rect.top() - point.y(), 0, point.y() - rect.bottom()});
    return dx * dx + dy * dy;
}

} // namespace

QRect PanelPlacement::anchor(const QRect& iconGeometry, const std::optional<QPoint>& hostPosition,
                             const QPoint& cursor) {
    if (!iconGeometry.isEmpty()) {
        return iconGeometry;
    }
    const QPoint point = hostPosition && !hostPosition->isNull() ? *hostPosition : cursor;
    return {point, QSize(1, 1)};
}

QPoint PanelPlacement::topLeft(const QSize& panel, const QRect& anchor,
                               const QList<Screen>& screens) {
    const QPoint centre = anchor.center();
    if (screens.isEmpty()) {
        return centre;
    }
    const Screen* screen = &screens.first();
    qint64 best = std::numeric_limits<qint64>::max();
    for (const Screen& candidate : screens) {
        const qint64 distance = distanceSquared(candidate.geometry, centre);
        if (distance < best) {
            best = distance;
            screen = &candidate;
        }
    }

    const QRect& whole = screen->geometry;
    const int toTop = centre.y() - whole.top();
    const int toBottom = whole.bottom() - centre.y();
    const int toLeft = centre.x() - whole.left();
    const int toRight = whole.right() - centre.x();
    const int nearest = std::min({toTop, toBottom, toLeft, toRight});

    QPoint position;
    if (nearest == toTop) {
        position = QPoint(centre.x() - panel.width() / 2, anchor.bottom() + 1 + gap);
    } else if (nearest == toBottom) {
        position = QPoint(centre.x() - panel.width() / 2, anchor.top() - gap - panel.height());
    } else if (nearest == toLeft) {
        position = QPoint(anchor.right() + 1 + gap, centre.y() - panel.height() / 2);
    } else {
        position = QPoint(anchor.left() - gap - panel.width(), centre.y() - panel.height() / 2);
    }

    // Panels (the tray's own among them) are outside the available area: stay within it, and
    // prefer showing the top-left corner when the panel is larger than the screen.
    const QRect& area = screen->availableGeometry;
    position.setX(std::max(area.left(), std::min(position.x(), area.right() + 1 - panel.width())));
    position.setY(std::max(area.top(), std::min(position.y(), area.bottom() + 1 - panel.height())));
    return position;
}

#include "ui/TrayIconArtwork.h"

#include "ui/HealthAppearance.h"
#include "ui/SymbolIcon.h"

#include <QPainter>

QIcon TrayIconArtwork::icon(TrackerHealth::Kind kind, const QPalette& palette) {
    QIcon result;
    for (const int size : sizes) {
        result.addPixmap(QPixmap::fromImage(image(kind, palette, size)));
    }
    return result;
}

QImage TrayIconArtwork::image(TrackerHealth::Kind kind, const QPalette& palette, int size) {
    QImage canvas(size, size, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::transparent);
    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::Antialiasing);
    const QString mark = QStringLiteral("vantrel.mark");
    const int edge = qMax(1, size / 16);
    const QColor edgeColour = palette.color(QPalette::Window);
    // The edge is the mark drawn in the edge colour, shifted around it.
    const QPixmap outline = SymbolIcon::pixmap(mark, edgeColour, size - 2 * edge, 1.0);
    for (const QPoint shift : {QPoint(-1, 0), QPoint(1, 0), QPoint(0, -1), QPoint(0, 1),
                               QPoint(-1, -1), QPoint(1, 1), QPoint(-1, 1), QPoint(1, -1)}) {
        painter.drawPixmap(QPoint(edge, edge) + shift * edge, outline);
    }
    painter.drawPixmap(edge, edge,
                       SymbolIcon::pixmap(mark, markColour(palette), size - 2 * edge, 1.0));

    // The badge sits in the lower right corner, set off from the mark by a ring of the edge
    // colour.
    const qreal diameter = size * 0.5;
    const qreal ring = qMax<qreal>(1.0, size / 16.0);
    const QRectF badge(size - diameter, size - diameter, diameter, diameter);
    painter.setPen(Qt::NoPen);
    painter.setBrush(edgeColour);
    painter.drawEllipse(
        badge.adjusted(-ring, -ring, ring, ring).intersected(QRectF(0, 0, size, size)));
    painter.setBrush(HealthAppearance::colour(kind, palette));
    painter.drawEllipse(badge.adjusted(ring / 2, ring / 2, -ring / 2, -ring / 2));
    return canvas;
}

QColor TrayIconArtwork::markColour(const QPalette& palette) {
    return palette.color(QPalette::WindowText);
}

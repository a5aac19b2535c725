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
    painter.drawPixmap(0, 0,
                       SymbolIcon::pixmap(QStringLiteral("vantrel.mark"), markColour(), size, 1.0));

    // The badge sits in the lower right corner, cut free from the mark by a transparent ring.
    const qreal diameter = size * 0.5;
    const qreal ring = qMax<qreal>(1.0, size / 16.0);
    const QRectF badge(size - diameter, size - diameter, diameter, diameter);
    painter.setPen(Qt::NoPen);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.drawEllipse(badge.adjusted(-ring, -ring, ring, ring));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(HealthAppearance::colour(kind, palette));
    painter.drawEllipse(badge);
    return canvas;
}

QColor TrayIconArtwork::markColour() {
    return QColor(0xc8, 0xc8, 0xc8);
}

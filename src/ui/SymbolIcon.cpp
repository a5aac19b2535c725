#include "ui/SymbolIcon.h"

#include <QFile>
#include <QHash>
#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QPixmapCache>

#include <cmath>

QString SymbolIcon::resourcePath(const QString& symbolName) {
    return QStringLiteral(":/icons/") + symbolName + QStringLiteral(".svg");
}

QString SymbolIcon::freedesktopName(const QString& symbolName) {
    static const QHash<QString, QString> names = {
        {QStringLiteral("gearshape"), QStringLiteral("preferences-system")},
        {QStringLiteral("stethoscope"), QStringLiteral("utilities-system-monitor")},
        {QStringLiteral("power"), QStringLiteral("application-exit")},
        {QStringLiteral("checkmark.circle.fill"), QStringLiteral("emblem-ok")},
        {QStringLiteral("wifi.slash"), QStringLiteral("network-offline")},
        {QStringLiteral("exclamationmark.triangle.fill"), QStringLiteral("dialog-warning")},
        {QStringLiteral("arrow.triangle.2.circlepath"), QStringLiteral("emblem-synchronizing")},
        {QStringLiteral("person.crop.circle.badge.exclamationmark"),
         QStringLiteral("dialog-password")},
        {QStringLiteral("person.crop.circle.badge.checkmark"), QStringLiteral("system-users")},
        {QStringLiteral("rectangle.portrait.and.arrow.right"), QStringLiteral("system-log-out")},
        {QStringLiteral("safari"), QStringLiteral("web-browser")},
        {QStringLiteral("xmark.circle"), QStringLiteral("process-stop")},
        {QStringLiteral("arrow.clockwise"), QStringLiteral("view-refresh")},
    };
    return names.value(symbolName);
}

QPixmap SymbolIcon::pixmap(const QString& symbolName, const QColor& tint, int logicalSize,
                           qreal devicePixelRatio) {
    const QString path = resourcePath(symbolName);
    if (logicalSize <= 0 || !QFile::exists(path)) {
        return {};
    }
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    // Rows and icons ask again on every paint: each drawing is decoded and tinted once.
    const QString key = QStringLiteral("symbol:%1:%2:%3:%4")
                            .arg(symbolName, tint.name(QColor::HexArgb))
                            .arg(logicalSize)
                            .arg(ratio);
    QPixmap cached;
    if (QPixmapCache::find(key, &cached)) {
        return cached;
    }
    const int side = static_cast<int>(std::lround(logicalSize * ratio));
    QImageReader reader(path);
    reader.setScaledSize(QSize(side, side));
    QImage image = reader.read();
    if (image.isNull()) {
        // The SVG image plugin is missing; a blank square keeps layouts steady.
        image = QImage(side, side, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
    }
    image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    {
        // The drawings are black on transparent: keep their coverage, take the tint's colour.
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), tint);
    }
    QPixmap result = QPixmap::fromImage(image);
    result.setDevicePixelRatio(ratio);
    QPixmapCache::insert(key, result);
    return result;
}

QIcon SymbolIcon::icon(const QString& symbolName, const QColor& tint) {
    if (!QFile::exists(resourcePath(symbolName))) {
        return {};
    }
    QIcon result;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        result.addPixmap(pixmap(symbolName, tint, size, 1.0));
    }
    return result;
}

#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

// The application's own small icon set, one monochrome SVG per symbol name of the design, tinted
// at run time so it reads on dark and light panels alike. Desktop icon themes are not used for
// these: their symbolic icons keep a fixed dark grey under Qt and vanish on dark panels.
class SymbolIcon {
public:
    // An icon holding the tinted symbol at the usual menu and toolbar sizes; a null icon for an
    // unknown name.
    static QIcon icon(const QString& symbolName, const QColor& tint);
    // The tinted symbol rendered for `logicalSize` × `logicalSize` device-independent pixels; a
    // null pixmap for an unknown name.
    static QPixmap pixmap(const QString& symbolName, const QColor& tint, int logicalSize,
                          qreal devicePixelRatio);

    // The resource path of a symbol's drawing, whether or not it exists.
    static QString resourcePath(const QString& symbolName);
    // The freedesktop icon name closest in meaning, for callers that would rather show the
    // desktop theme's icon (such as a window's icon).
    static QString freedesktopName(const QString& symbolName);
};

#pragma once

#include "app/TrackerHealth.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPalette>

// The tray icon: the application's monochrome mark with a coloured badge for the health state,
// as pixmaps at every size a tray asks for, so no host has to find it in an icon theme.
class TrayIconArtwork {
public:
    static constexpr int sizes[] = {16, 22, 24, 32, 48, 64};

    static QIcon icon(TrackerHealth::Kind kind, const QPalette& palette);
    static QImage image(TrackerHealth::Kind kind, const QPalette& palette, int size);
    // Trays sit on dark and light panels alike and Qt cannot tell which. The mark takes the
    // palette's text colour, which suits a panel themed like our windows, and is edged in the
    // window colour, which keeps it readable on a panel of the opposite shade.
    static QColor markColour(const QPalette& palette);
};

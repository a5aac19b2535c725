#pragma once

#include "app/TrackerHealth.h"

#include <QColor>
#include <QPalette>
#include <QString>

// The fixed icon and colour of each health state, shared by every view that shows the status.
class HealthAppearance {
public:
    static QString symbolName(TrackerHealth::Kind kind);
    // Secondary and accent follow the palette; green, orange and red are fixed hues chosen to
    // read on both dark and light backgrounds.
    static QColor colour(TrackerHealth::Kind kind, const QPalette& palette);

    static QColor green();
    static QColor orange();
    static QColor red();
};

#include "ui/HealthAppearance.h"

QString HealthAppearance::symbolName(TrackerHealth::Kind kind) {
    switch (kind) {
    case TrackerHealth::Kind::signInRequired:
        return QStringLiteral("person.crop.circle.badge.exclamationmark");
    case TrackerHealth::Kind::connecting:
        return QStringLiteral("arrow.triangle.2.circlepath");
    case TrackerHealth::Kind::tracking:
        return QStringLiteral("checkmark.circle.fill");
    case TrackerHealth::Kind::offline:
        return QStringLiteral("wifi.slash");
    case TrackerHealth::Kind::actionRequired:
        return QStringLiteral("exclamationmark.triangle.fill");
    }
    return {};
}

QColor HealthAppearance::colour(TrackerHealth::Kind kind, const QPalette& palette) {
    switch (kind) {
    case TrackerHealth::Kind::signInRequired:
        return palette.color(QPalette::PlaceholderText);
    case TrackerHealth::Kind::connecting:
        return palette.color(QPalette::Highlight);
    case TrackerHealth::Kind::tracking:
        return green();
    case TrackerHealth::Kind::offline:
        return orange();
    case TrackerHealth::Kind::actionRequired:
        return red();
    }
    return palette.color(QPalette::WindowText);
}

QColor HealthAppearance::green() {
    return QColor(0x2f, 0xa8, 0x4f);
}

QColor HealthAppearance::orange() {
    return QColor(0xe8, 0x8a, 0x1a);
}

QColor HealthAppearance::red() {
    return QColor(0xe0, 0x3e, 0x36);
}

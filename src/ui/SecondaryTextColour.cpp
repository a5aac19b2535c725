#include "ui/SecondaryTextColour.h"

#include <QApplication>
#include <QEvent>

#include <cmath>

namespace {

QColor mixed(const QColor& a, const QColor& b, qreal weightOfA) {
    const auto mix = [weightOfA](qreal x, qreal y) { return x * weightOfA + y * (1 - weightOfA); };
    return QColor::fromRgbF(static_cast<float>(mix(a.redF(), b.redF())),
                            static_cast<float>(mix(a.greenF(), b.greenF())),
                            static_cast<float>(mix(a.blueF(), b.blueF())));
}

} // namespace

SecondaryTextColour::SecondaryTextColour(QObject* parent)
    : QObject(parent) {
    repair();
    QCoreApplication::instance()->installEventFilter(this);
}

QPalette SecondaryTextColour::readable(QPalette palette) {
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const QColor window = palette.color(group, QPalette::Window);
        const QColor placeholder = palette.color(group, QPalette::PlaceholderText);
        const QColor text = palette.color(group, QPalette::WindowText);
        // Lightness apart by less than a quarter of the range reads as faint at caption size.
        if (std::abs(placeholder.lightnessF() - window.lightnessF()) < 0.25f) {
            palette.setColor(group, QPalette::PlaceholderText, mixed(text, window, 0.6));
        }
    }
    return palette;
}

bool SecondaryTextColour::eventFilter(QObject* watched, QEvent* event) {
    if (watched == QCoreApplication::instance() &&
        event->type() == QEvent::ApplicationPaletteChange) {
        repair();
    }
    return false;
}

void SecondaryTextColour::repair() {
    const QPalette current = QApplication::palette();
    const QPalette repaired = readable(current);
    // Setting an unchanged palette would announce a change and come back here.
    if (repaired != current) {
        QApplication::setPalette(repaired);
    }
}

#include "ui/SymbolIcon.h"

#include "ui/HealthAppearance.h"
#include "ui/TrayIconArtwork.h"

#include <QImage>
#include <QSet>

#include <gtest/gtest.h>

namespace {

// Counts pixels that are drawn at all, and those whose colour is not the tint.
std::pair<int, int> inkAndStrayPixels(const QImage& image, const QColor& tint) {
    int ink = 0;
    int stray = 0;
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < argb.height(); ++y) {
        for (int x = 0; x < argb.width(); ++x) {
            const QColor pixel = argb.pixelColor(x, y);
            if (pixel.alpha() >= 200) {
                ++ink;
                stray += std::max({std::abs(pixel.red() - tint.red()),
                                   std::abs(pixel.green() - tint.green()),
                                   std::abs(pixel.blue() - tint.blue())}) > 2;
            }
        }
    }
    return {ink, stray};
}

} // namespace

// A missing SVG plugin or a broken drawing shows as an empty square, not as an error. Each health
// state has a symbol of its own.
TEST(SymbolIcon, rendersTheRowsAndEveryStatesOwnSymbolInTheTintAtTheRequestedScale) {
    using Kind = TrackerHealth::Kind;
    QStringList names = QString("gearshape stethoscope power rectangle.portrait.and.arrow.right "
                                "person.crop.circle.badge.checkmark safari xmark.circle "
                                "arrow.clockwise")
                            .split(' ');
    for (const auto kind : {Kind::signInRequired, Kind::connecting, Kind::tracking, Kind::offline,
                            Kind::actionRequired}) {
        names.append(HealthAppearance::symbolName(kind));
    }
    EXPECT_EQ(QSet<QString>(names.cbegin(), names.cend()).size(), names.size());
    const QColor tint(0x20, 0x90, 0xd0);
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        const QPixmap pixmap = SymbolIcon::pixmap(name, tint, 16, 2.0);
        ASSERT_FALSE(pixmap.isNull());
        EXPECT_EQ(pixmap.size(), QSize(32, 32));
        EXPECT_EQ(pixmap.deviceIndependentSize(), QSizeF(16, 16));
        const auto [ink, stray] = inkAndStrayPixels(pixmap.toImage(), tint);
        EXPECT_GT(ink, 40);
        EXPECT_EQ(stray, 0);
        EXPECT_FALSE(SymbolIcon::freedesktopName(name).isEmpty());
        EXPECT_EQ(SymbolIcon::pixmap(name, tint, 16, 2.0).cacheKey(), pixmap.cacheKey())
            << "drawn once";
    }
}

// Readable on a light panel and on a dark one, whichever the palette is: the mark in the text
// colour, edged in the window colour.
TEST(TrayIconArtwork, drawsAnEdgedMarkWithABadgeInTheStatesColourAtEveryTraySize) {
    for (const auto& [text, window] : {std::pair(QColor(Qt::black), QColor(0xef, 0xef, 0xef)),
                                       std::pair(QColor(Qt::white), QColor(0x2a, 0x2a, 0x2a))}) {
        QPalette palette;
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::Window, window);
        const QIcon icon = TrayIconArtwork::icon(TrackerHealth::Kind::offline, palette);
        for (const int size : TrayIconArtwork::sizes) {
            SCOPED_TRACE(size);
            EXPECT_TRUE(icon.availableSizes().contains(QSize(size, size)));
            const QImage image = TrayIconArtwork::image(TrackerHealth::Kind::offline, palette, size)
                                     .convertToFormat(QImage::Format_ARGB32);
            const int badgeCentre = size - size / 4;
            EXPECT_EQ(image.pixelColor(badgeCentre, badgeCentre), HealthAppearance::orange());
            for (const QColor& colour : {text, window}) {
                const auto [ink, stray] = inkAndStrayPixels(image, colour);
                EXPECT_GT(ink - stray, size) << colour.name().toStdString() << " is missing";
            }
        }
    }
}

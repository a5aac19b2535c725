#include "ui/MenuRowButton.h"

#include "ui/SymbolIcon.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int horizontalPadding = 8;
constexpr int verticalPadding = 6;
constexpr int symbolFrame = 22;
constexpr int spacing = 10;
constexpr int symbolSize = 16;
constexpr qreal cornerRadius = 8;
constexpr qreal focusRingWidth = 2;

} // namespace

MenuRowButton::MenuRowButton(const QString& title, const QString& symbolName, QWidget* parent)
    : QAbstractButton(parent)
    , m_symbolName(symbolName) {
    setText(title);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    // Focus comes from the keyboard only: a click that left a focus ring behind would look like
    // a second, different selection.
    setFocusPolicy(Qt::TabFocus);
}

QSize MenuRowButton::sizeHint() const {
    const QFontMetrics metrics(font());
    const int height = std::max(metrics.height(), symbolSize) + 2 * verticalPadding;
    return {2 * horizontalPadding + symbolFrame + spacing + metrics.horizontalAdvance(text()),
            height};
}

QSize MenuRowButton::minimumSizeHint() const {
    return sizeHint();
}

void MenuRowButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool pressed = isDown();
    const QColor primary = palette().color(QPalette::WindowText);
    const QRectF bounds(rect());
    const qreal fill = pressed ? 0.16 : (m_hovering ? 0.1 : 0.0);
    if (fill > 0) {
        QColor background = primary;
        background.setAlphaF(fill);
        QPainterPath path;
        path.addRoundedRect(bounds, cornerRadius, cornerRadius);
        painter.fillPath(path, background);
    }
    // The keyboard's place is a ring, so that it stays apart from where the pointer is.
    if (hasFocus()) {
        const qreal inset = focusRingWidth / 2.0;
        painter.setPen(QPen(palette().color(QPalette::Highlight), focusRingWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(bounds.adjusted(inset, inset, -inset, -inset), cornerRadius - inset,
                                cornerRadius - inset);
    }
    painter.setOpacity(pressed ? 0.8 : 1.0);
    const int symbolLeft = horizontalPadding + (symbolFrame - symbolSize) / 2;
    const QPixmap symbol =
        SymbolIcon::pixmap(m_symbolName, primary, symbolSize, devicePixelRatioF());
    painter.drawPixmap(symbolLeft, (height() - symbolSize) / 2, symbol);
    painter.setPen(primary);
    const QRect textRect =
        rect().adjusted(horizontalPadding + symbolFrame + spacing, 0, -horizontalPadding, 0);
    painter.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter, text());
}

void MenuRowButton::enterEvent(QEnterEvent* event) {
    m_hovering = true;
    update();
    QAbstractButton::enterEvent(event);
}

void MenuRowButton::leaveEvent(QEvent* event) {
    m_hovering = false;
    update();
    QAbstractButton::leaveEvent(event);
}

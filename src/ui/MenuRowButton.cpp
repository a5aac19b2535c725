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

} // namespace

MenuRowButton::MenuRowButton(const QString& title, const QString& symbolName, QWidget* parent)
    : QAbstractButton(parent)
    , m_symbolName(symbolName) {
    setText(title);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::StrongFocus);
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
    const qreal fill = pressed ? 0.16 : (m_hovering || hasFocus() ? 0.1 : 0.0);
    if (fill > 0) {
        QColor background = primary;
        background.setAlphaF(fill);
        QPainterPath path;
        path.addRoundedRect(QRectF(rect()), cornerRadius, cornerRadius);
        painter.fillPath(path, background);
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

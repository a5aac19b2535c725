#include "ui/PanelWindow.h"

#include "ui/MenuBarView.h"
#include "ui/PanelPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

PanelWindow::PanelWindow(ContentFactory makeContent, QWidget* parent)
    : QWidget(parent)
    , m_makeContent(std::move(makeContent)) {
    setWindowTitle(QStringLiteral("Vantrel"));
    setAccessibleName(QStringLiteral("Vantrel"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    applyWindowFlags();
    connect(
        qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
            if (m_trayMode && state != Qt::ApplicationActive && isVisible() && m_activeSinceShown) {
                hideAutomatically();
            }
        });
}

void PanelWindow::setTrayMode(bool trayMode) {
    if (m_trayMode == trayMode) {
        return;
    }
    const bool wasVisible = isVisible();
    m_trayMode = trayMode;
    m_anchor = QRect();
    applyWindowFlags();
    // Changing the flags hides a window; one the user had open stays open.
    if (wasVisible) {
        makeContent();
        show();
    }
}

void PanelWindow::toggle(const QRect& iconGeometry) {
    toggleBeside(PanelPlacement::anchor(iconGeometry, std::nullopt, QCursor::pos()));
}

void PanelWindow::toggleAt(const QPoint& hostPosition) {
    toggleBeside(PanelPlacement::anchor(QRect(), hostPosition, QCursor::pos()));
}

void PanelWindow::toggleBeside(const QRect& anchor) {
    if (isVisible()) {
        hide();
        return;
    }
    if (m_sinceAutomaticHide.isValid() &&
        m_sinceAutomaticHide.elapsed() < retriggerGuardMilliseconds) {
        return;
    }
    present(anchor);
}

void PanelWindow::present(const QRect& anchor) {
    makeContent();
    if (m_trayMode && !isVisible()) {
        m_anchor = anchor;
        adjustSize();
        place();
    }
    show();
    raise();
    activateWindow();
}

void PanelWindow::dismiss() {
    if (m_trayMode) {
        hide();
    }
}

void PanelWindow::keyPressEvent(QKeyEvent* event) {
    if (m_trayMode && event->key() == Qt::Key_Escape) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    // A minimised window is still visible and keeps its content.
    if (m_content && !isVisible()) {
        QWidget* content = m_content;
        m_content = nullptr;
        layout()->removeWidget(content);
        content->hide();
        content->deleteLater();
    }
}

void PanelWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    m_activeSinceShown = isActiveWindow();
}

void PanelWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        m_activeSinceShown = true;
    }
}

void PanelWindow::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (m_trayMode && isVisible() && m_anchor.isValid()) {
        place();
    }
}

void PanelWindow::makeContent() {
    if (!m_content) {
        m_content = m_makeContent();
        layout()->addWidget(m_content);
        if (auto* view = qobject_cast<MenuBarView*>(m_content.data())) {
            connect(view, &MenuBarView::windowOpened, this, &PanelWindow::dismiss);
        }
    }
}

void PanelWindow::applyWindowFlags() {
    if (m_trayMode) {
        setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    } else {
        setWindowFlags(Qt::Window);
    }
}

void PanelWindow::place() {
    // Wayland lets the compositor place windows; moving would be ignored at best.
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        return;
    }
    QList<PanelPlacement::Screen> screens;
    for (const QScreen* screen : QGuiApplication::screens()) {
        screens.append({screen->geometry(), screen->availableGeometry()});
    }
    move(PanelPlacement::topLeft(size(), m_anchor, screens));
}

void PanelWindow::hideAutomatically() {
    hide();
    m_sinceAutomaticHide.start();
}

#include "ui/PlaceholderWindow.h"

#include <QLabel>
#include <QVBoxLayout>

PlaceholderWindow::PlaceholderWindow(const QString& title, const QSize& size, QWidget* parent)
    : QWidget(parent, Qt::Window) {
    setWindowTitle(title);
    resize(size);
    auto* layout = new QVBoxLayout(this);
    auto* label = new QLabel(title, this);
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(label);
}

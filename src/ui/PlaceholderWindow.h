#pragma once

#include <QWidget>

// Stands in for a window that is not built yet, so the menu entries leading to it already work.
class PlaceholderWindow : public QWidget {
    Q_OBJECT
public:
    PlaceholderWindow(const QString& title, const QSize& size, QWidget* parent = nullptr);
};

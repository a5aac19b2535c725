#pragma once

#include <QAbstractButton>

// A row of the panel's actions list: the symbol in a 22-wide frame, the title, a rounded
// background that shows while the pointer is over the row or the row is pressed, and a ring
// around the row that has the keyboard focus. The whole row
// takes clicks, its empty part included.
class MenuRowButton : public QAbstractButton {
    Q_OBJECT
public:
    MenuRowButton(const QString& title, const QString& symbolName, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QString m_symbolName;
    bool m_hovering = false;
};

#pragma once

#include <QObject>
#include <QPalette>

// Keeps the application palette's placeholder colour, which our secondary texts use, readable on
// the window colour. Some platform themes (Qt's KDE theme reading a dark colour scheme, for one)
// leave it at the light palette's grey, which all but vanishes on a dark window.
class SecondaryTextColour : public QObject {
    Q_OBJECT
public:
    explicit SecondaryTextColour(QObject* parent = nullptr);

    // `palette` with a placeholder colour between its text and window colours when the one it has
    // is too close to the window colour; otherwise unchanged.
    static QPalette readable(QPalette palette);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void repair();
};

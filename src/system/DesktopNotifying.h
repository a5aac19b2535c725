#pragma once

#include <QObject>
#include <QString>

// One desktop notification at a time: showing another replaces it.
class DesktopNotifying : public QObject {
    Q_OBJECT
public:
    struct Notice {
        QString summary;
        QString body;
        // The one button's text.
        QString actionLabel;

        friend bool operator==(const Notice&, const Notice&) = default;
    };

    using QObject::QObject;

    // Shows `notice` in place of the current one. Returns at once; a desktop without a
    // notification service shows nothing and reports nothing.
    virtual void show(const Notice& notice) = 0;
    // Takes the current notice off the screen, if one is there.
    virtual void withdraw() = 0;

Q_SIGNALS:
    // The user pressed the button of the notice on screen.
    void actionInvoked();
};

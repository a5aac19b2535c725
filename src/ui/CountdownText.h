#pragma once

#include <QDateTime>
#include <QString>

// A timer-style countdown: "4:59", "1:00:00" from one hour up; once the moment has passed it
// counts the time since, in the same form.
class CountdownText {
public:
    static QString text(const QDateTime& target, const QDateTime& now);
};

#pragma once

#include <QMetaType>
#include <QString>

// Today's tracked total as the service reports it.
struct TodaySummary {
    // Display text exactly as the service sent it; never blank.
    QString text;
    // Whole seconds; never negative.
    qint64 totalSeconds = 0;

    friend bool operator==(const TodaySummary&, const TodaySummary&) = default;
};

Q_DECLARE_METATYPE(TodaySummary)

#include "ui/CountdownText.h"

#include <cstdlib>

QString CountdownText::text(const QDateTime& target, const QDateTime& now) {
    const qint64 total = std::llabs(now.msecsTo(target)) / 1000;
    const qint64 hours = total / 3600;
    const qint64 minutes = (total % 3600) / 60;
    const qint64 seconds = total % 60;
    const auto twoDigits = [](qint64 value) {
        return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
    };
    if (hours > 0) {
        return QString::number(hours) + QLatin1Char(':') + twoDigits(minutes) + QLatin1Char(':') +
               twoDigits(seconds);
    }
    return QString::number(minutes) + QLatin1Char(':') + twoDigits(seconds);
}

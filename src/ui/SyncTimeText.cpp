#include "ui/SyncTimeText.h"

#include <QRegularExpression>

std::optional<SyncTimeText::Texts> SyncTimeText::format(const std::optional<QString>& timestamp,
                                                        const QDateTime& now, const QLocale& locale,
                                                        const QTimeZone& timeZone) {
    if (!timestamp) {
        return std::nullopt;
    }
    const std::optional<QDateTime> date = parseInternetDateTime(*timestamp);
    if (!date) {
        return std::nullopt;
    }
    // Whole seconds, the fraction dropped toward zero in either direction.
    const qint64 seconds = date->msecsTo(now) / 1000;
    return Texts{mediumDateShortTime(date->toTimeZone(timeZone), locale), relativeAge(seconds)};
}

std::optional<QDateTime> SyncTimeText::parseInternetDateTime(const QString& text) {
    // Anchored at both ends without `$`, which also matches before a final line feed; ASCII
    // digits only, where `\d` would take any script's.
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(QStringLiteral(
        R"(([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]{2})(?:\.([0-9]+))?(?:(Z)|([+-])([0-9]{2}):([0-9]{2})))")));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const auto number = [&match](int group) { return match.captured(group).toInt(); };
    const QDate date(number(1), number(2), number(3));
    // Only the first three digits of the fraction matter at millisecond resolution.
    const int milliseconds = match.captured(7).left(3).leftJustified(3, QLatin1Char('0')).toInt();
    const QTime time(number(4), number(5), number(6), milliseconds);
    if (!date.isValid() || !time.isValid() || number(4) > 23) {
        return std::nullopt;
    }
    int offsetSeconds = 0;
    if (match.captured(8).isEmpty()) {
        if (number(10) > 23 || number(11) > 59) {
            return std::nullopt;
        }
        offsetSeconds = (number(10) * 3600 + number(11) * 60) *
                        (match.captured(9) == QLatin1String("-") ? -1 : 1);
    }
    // An offset can carry the first or last day of the four-digit years out of them; such an
    // instant has no timestamp of its own to be written back as, so it is not one.
    const QDateTime instant = QDateTime(date, time, Qt::OffsetFromUTC, offsetSeconds).toUTC();
    if (instant.date().year() < 1 || instant.date().year() > 9999) {
        return std::nullopt;
    }
    return instant;
}

QString SyncTimeText::relativeAge(qint64 seconds) {
    if (seconds < 10) {
        return QStringLiteral("few seconds ago");
    }
    if (seconds < 60) {
        return QString::number(seconds) + QStringLiteral(" seconds ago");
    }
    if (seconds < 120) {
        return QStringLiteral("1 minute ago");
    }
    if (seconds < 3600) {
        return QString::number(seconds / 60) + QStringLiteral(" minutes ago");
    }
    if (seconds < 7200) {
        return QStringLiteral("1 hour ago");
    }
    if (seconds < 86400) {
        return QString::number(seconds / 3600) + QStringLiteral(" hours ago");
    }
    if (seconds < 172800) {
        return QStringLiteral("1 day ago");
    }
    return QString::number(seconds / 86400) + QStringLiteral(" days ago");
}

QString SyncTimeText::mediumDateShortTime(const QDateTime& dateTime, const QLocale& locale) {
    QString dateFormat = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(QStringLiteral(R"(d{4}[,.]?\s*)"));
    dateFormat.remove(weekday);
    dateFormat.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return locale.toString(dateTime.date(), dateFormat.trimmed()) + QStringLiteral(", ") +
           locale.toString(dateTime.time(), QLocale::ShortFormat);
}

#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QTimeZone>

#include <optional>

// The texts of the "Last sync" row: when the helper last uploaded, absolutely and as an age.
class SyncTimeText {
public:
    struct Texts {
        QString absolute;
        QString relative;
        friend bool operator==(const Texts&, const Texts&) = default;
    };

    // None without a timestamp or when it is not an internet date-time.
    static std::optional<Texts> format(const std::optional<QString>& timestamp,
                                       const QDateTime& now, const QLocale& locale,
                                       const QTimeZone& timeZone);

    // An RFC 3339 internet date-time, with or without fractional seconds, with "Z" or a numeric
    // offset. Stricter than Qt's ISO parser, which also takes a space for the "T" and no zone.
    static std::optional<QDateTime> parseInternetDateTime(const QString& text);

    // "few seconds ago" … "N days ago" for whole seconds elapsed; negative ages (a timestamp
    // from the future) count as fresh.
    static QString relativeAge(qint64 seconds);

    // The date in the locale's medium style ("May 1, 2024", "1. Mai 2024") and the time in its
    // short style. QLocale knows no medium style: it is the long one without the weekday and
    // with abbreviated month names.
    static QString mediumDateShortTime(const QDateTime& dateTime, const QLocale& locale);
};

#include "FuzzProperty.h"
#include "ui/SyncTimeText.h"

#include <QDateTime>
#include <QString>

#include <algorithm>

namespace {

bool isTimestampCharacter(QChar c) {
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('-') ||
           c == QLatin1Char(':') || c == QLatin1Char('T') || c == QLatin1Char('.') ||
           c == QLatin1Char('Z') || c == QLatin1Char('+');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<QDateTime> instant = SyncTimeText::parseInternetDateTime(text);
    if (!instant) {
        return 0;
    }
    require(instant->isValid(), "an accepted timestamp is a valid instant");
    require(std::all_of(text.cbegin(), text.cend(), isTimestampCharacter),
            "only ASCII digits, separators and zone designators are accepted");

    // Formatted back, in UTC and at a numeric offset, it parses to the same instant.
    const QString utc = instant->toUTC().toString(Qt::ISODateWithMs);
    require(SyncTimeText::parseInternetDateTime(utc) == instant,
            "a parsed timestamp formats back to an instant that parses the same");
    // Unless that offset carries it out of the four-digit years, which no timestamp can write.
    const QDateTime shifted = instant->toOffsetFromUtc(-(5 * 3600 + 30 * 60));
    if (shifted.date().year() >= 1) {
        require(SyncTimeText::parseInternetDateTime(shifted.toString(Qt::ISODateWithMs)) == instant,
                "the same instant at another offset parses the same");
    }
    return 0;
}

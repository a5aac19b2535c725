#include "FuzzProperty.h"
#include "api/TodaySummaryClient.h"
#include "api/TodaySummaryClientError.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QByteArray encoded(const TodaySummary& summary, bool camelCase) {
    const QJsonObject total{
        {QStringLiteral("text"), summary.text},
        {camelCase ? QStringLiteral("totalSeconds") : QStringLiteral("total_seconds"),
         summary.totalSeconds}};
    const QJsonObject data{
        {camelCase ? QStringLiteral("grandTotal") : QStringLiteral("grand_total"), total}};
    return QJsonDocument(QJsonObject{{QStringLiteral("data"), data}})
        .toJson(QJsonDocument::Compact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    TodaySummary summary;
    try {
        summary = TodaySummaryClient::decode(body);
    } catch (const TodaySummaryClientError& error) {
        require(error == TodaySummaryClientError::invalidResponse(),
                "a body that does not decode is an invalid response");
        return 0;
    }
    require(!summary.text.trimmed().isEmpty(), "the text is never blank");
    require(summary.totalSeconds >= 0, "the total is never negative");
    for (const bool camelCase : {false, true}) {
        try {
            require(TodaySummaryClient::decode(encoded(summary, camelCase)) == summary,
                    "a decoded summary equals itself decoded from its re-encoding");
        } catch (const TodaySummaryClientError&) {
            require(false, "a decoded summary re-encodes to a body that decodes");
        }
    }
    return 0;
}

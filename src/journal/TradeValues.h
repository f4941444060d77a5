#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// The values of a broker's trade file, read as its columns write them. Stateless; callable from any
// thread (local times go through the C library, which reads the system time zone).
namespace TradeValues {

// ISO 8601 with a "T" or a space between date and time, seconds and fractions optional, with "Z" or
// an offset (+01:00, +0100, +01) or without one, which is local time: "2024-03-05T14:07:33Z",
// "2024-03-05 14:07", "2024-03-05T14:07:33.250-05:00". The date may use "/" instead of "-".
// Seconds since 2001-01-01 00:00:00 UTC; nothing for anything else, a date that does not exist or a
// year outside 1900 to 9998.
std::optional<double> parseTime(QStringView text);

// An amount as brokers write it: "-12.50", "12.50-", "(12.50)", "$1,234.56", "USD 1 234,56", "−8",
// "1.234,56". Of "." and "," the later one is the decimal mark when both stand; a lone "," is a
// thousands mark when groups of three digits follow it ("1,234"), else the decimal mark ("12,5").
// Nothing for an empty text, anything that is not one number, or a magnitude beyond any account.
std::optional<double> parseAmount(QStringView text);

// "long" for buy, bought, bot, long, b; "short" for sell, sold, sld, short, s, sell short; any other
// word as it stands, trimmed.
QString normalisedSide(const QString& text);

} // namespace TradeValues

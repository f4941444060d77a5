#include "journal/TradeValues.h"

#include "journal/ClipMeta.h"
#include "journal/ReferenceDate.h"

#include <cmath>
#include <ctime>

namespace TradeValues {

namespace {

// Reads exactly `width` ASCII digits at `at`, advancing it.
std::optional<int> digits(QStringView text, qsizetype& at, int width)
{
    if (at + width > text.size()) return std::nullopt;
    int value = 0;
    for (int i = 0; i < width; ++i) {
        const char16_t c = text[at + i].unicode();
        if (c < u'0' || c > u'9') return std::nullopt;
        value = value * 10 + (c - u'0');
    }
    at += width;
    return value;
}

bool take(QStringView text, qsizetype& at, char16_t c)
{
    if (at < text.size() && text[at] == c) {
        ++at;
        return true;
    }
    return false;
}

int64_t daysFromCivil(int y, int m, int d)
{
    // Howard Hinnant's days_from_civil: days since 1970-01-01 of a proleptic Gregorian date.
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

int daysInMonth(int y, int m)
{
    static constexpr int days[] = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    return m == 2 && leap ? 29 : days[m - 1];
}

} // namespace

std::optional<double> parseTime(QStringView input)
{
    const QStringView text = input.trimmed();
    qsizetype at = 0;
    const auto year = digits(text, at, 4);
    // No broker has a trade from before 1900, and the edges of the calendar (years before 1 or after
    // 9999 once a zone's offset is applied) can't be written back.
    if (!year || *year < 1900 || *year > 9998 || at >= text.size()) return std::nullopt;
    const char16_t separator = text[at].unicode();
    if (separator != u'-' && separator != u'/') return std::nullopt;
    ++at;
    const auto month = digits(text, at, 2);
    if (!month || !take(text, at, separator)) return std::nullopt;
    const auto day = digits(text, at, 2);
    if (!day || *month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month)) return std::nullopt;
    if (!take(text, at, u'T') && !take(text, at, u' ')) return std::nullopt;
    const auto hour = digits(text, at, 2);
    if (!hour || !take(text, at, u':')) return std::nullopt;
    const auto minute = digits(text, at, 2);
    if (!minute || *hour > 23 || *minute > 59) return std::nullopt;
    int second = 0;
    double fraction = 0;
    if (take(text, at, u':')) {
        const auto s = digits(text, at, 2);
        if (!s || *s > 60) return std::nullopt;
        second = *s;
        if (take(text, at, u'.') || take(text, at, u',')) {
            double scale = 0.1;
            const qsizetype first = at;
            while (at < text.size() && text[at] >= u'0' && text[at] <= u'9') {
                fraction += (text[at].unicode() - u'0') * scale;
                scale /= 10;
                ++at;
            }
            if (at == first) return std::nullopt;
        }
    }
    const int64_t civilSeconds = daysFromCivil(*year, *month, *day) * 86400 + *hour * 3600 + *minute * 60 + second;

    if (at == text.size()) {
        // Local wall-clock time: the C library knows the zone's rules, gaps and repeats included.
        std::tm tm {};
        tm.tm_year = *year - 1900;
        tm.tm_mon = *month - 1;
        tm.tm_mday = *day;
        tm.tm_hour = *hour;
        tm.tm_min = *minute;
        tm.tm_sec = second;
        tm.tm_isdst = -1;
        const std::time_t unix = std::mktime(&tm);
        if (unix == std::time_t(-1) && !(tm.tm_year == 69 && tm.tm_mon == 11 && tm.tm_mday == 31)) return std::nullopt;
        return double(unix) + fraction - ReferenceDate::unixOffset;
    }
    int offset = 0;
    if (take(text, at, u'Z') || take(text, at, u'z')) {
        offset = 0;
    } else {
        const char16_t sign = text[at].unicode();
        if (sign != u'+' && sign != u'-' && sign != u'\u2212') return std::nullopt;
        ++at;
        const auto hours = digits(text, at, 2);
        if (!hours || *hours > 18) return std::nullopt;
        int minutes = 0;
        if (at < text.size()) {
            take(text, at, u':');
            const auto m = digits(text, at, 2);
            if (!m || *m > 59) return std::nullopt;
            minutes = *m;
        }
        offset = (*hours * 60 + minutes) * 60 * (sign == u'+' ? 1 : -1);
    }
    if (at != text.size()) return std::nullopt;
    return double(civilSeconds - offset) + fraction - ReferenceDate::unixOffset;
}

std::optional<double> parseAmount(QStringView input)
{
    bool negative = false;
    QString core;
    core.reserve(input.size());
    QStringView text = input.trimmed();
    if (text.startsWith(u'(') && text.endsWith(u')')) {
        negative = true;
        text = text.mid(1, text.size() - 2).trimmed();
    }
    int signs = 0;
    bool seenDigit = false;
    bool trailingSign = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const char16_t u = c.unicode();
        if (u >= u'0' && u <= u'9') {
            if (trailingSign) return std::nullopt;
            seenDigit = true;
            core += c;
        } else if (u == u'.' || u == u',') {
            if (trailingSign) return std::nullopt;
            core += c;
        } else if (u == u'-' || u == u'\u2212' || u == u'+') {
            ++signs;
            if (u != u'+') negative = !negative;
            if (seenDigit) trailingSign = true;
        } else if (c.isSpace() || u == u'\'' || u == u'\u00a0' || u == u'\u202f') {
            // Spaces and apostrophes group thousands in some locales; "USD 1 234" has one.
        } else if (c.category() == QChar::Symbol_Currency || (u >= u'A' && u <= u'Z')) {
            // "$", "€", "USD", "EUR": the currency says nothing about the amount.
            if (seenDigit && !trailingSign && u >= u'A' && u <= u'Z' && i + 1 < text.size() && text[i + 1].isDigit()) {
                return std::nullopt;
            }
        } else {
            return std::nullopt;
        }
    }
    if (!seenDigit || signs > 1) return std::nullopt;

    // Which mark, if any, is the decimal one; every other mark groups thousands and is dropped.
    const qsizetype dots = core.count(u'.');
    const qsizetype commas = core.count(u',');
    QChar decimal;
    if (dots > 0 && commas > 0) {
        decimal = core.lastIndexOf(u'.') > core.lastIndexOf(u',') ? u'.' : u',';
        if (core.count(decimal) > 1) return std::nullopt;
    } else if (dots == 1) {
        decimal = u'.';
    } else if (commas == 1) {
        // "1,234" groups thousands; "12,5" and "1234,56" have a decimal comma.
        const qsizetype at = core.indexOf(u',');
        const bool thousands = at >= 1 && at <= 3 && core.size() - at - 1 == 3;
        if (!thousands) decimal = u',';
    }
    QString number;
    number.reserve(core.size());
    qsizetype sinceMark = -1; // digits since the last thousands mark, -1 before the first
    for (const QChar c : core) {
        if (c == decimal) {
            if (sinceMark >= 0 && sinceMark != 3) return std::nullopt;
            sinceMark = -1;
            number += u'.';
            decimal = QChar(); // nothing groups after the decimal mark
        } else if (c == u'.' || c == u',') {
            if (sinceMark >= 0 && sinceMark != 3) return std::nullopt;
            if (number.isEmpty() || number.endsWith(u'.')) return std::nullopt;
            sinceMark = 0;
        } else {
            number += c;
            if (sinceMark >= 0) ++sinceMark;
        }
    }
    if (sinceMark >= 0 && sinceMark != 3) return std::nullopt;
    bool ok = false;
    const double magnitude = number.toDouble(&ok);
    if (!ok) return std::nullopt;
    const double value = negative ? -magnitude : magnitude;
    if (!ClipMeta::isPlausiblePnL(value)) return std::nullopt;
    return value == 0 ? 0.0 : value;
}

QString normalisedSide(const QString& text)
{
    const QString word = text.trimmed().toLower();
    for (const char* longWord : { "buy", "bought", "bot", "long", "b", "buy to open" })
        if (word == QLatin1StringView(longWord)) return QStringLiteral("long");
    for (const char* shortWord : { "sell", "sold", "sld", "short", "s", "sell short", "sell to open" })
        if (word == QLatin1StringView(shortWord)) return QStringLiteral("short");
    return text.trimmed();
}

} // namespace TradeValues

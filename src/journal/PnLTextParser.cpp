#include "journal/PnLTextParser.h"

#include <QRegularExpression>

#include <charconv>
#include <cmath>

namespace PnLTextParser {

namespace {

// An optional sign, then digits with at most one decimal point among them, nothing else: the whole
// text must be the number. No exponents, no "inf" or "nan", no leading or trailing space.
std::optional<double> decimalNumber(const QString& text)
{
    const QByteArray latin = text.toLatin1();
    const char* begin = latin.constData();
    const char* end = begin + latin.size();
    if (text.size() != latin.size()) return std::nullopt;
    bool negative = false;
    if (begin != end && (*begin == '+' || *begin == '-')) {
        negative = *begin == '-';
        ++begin;
    }
    int digits = 0, points = 0;
    bool integerPartIsZero = true;
    for (const char* p = begin; p != end; ++p) {
        if (*p == '.') {
            ++points;
        } else if (*p >= '0' && *p <= '9') {
            ++digits;
            if (points == 0 && *p != '0') integerPartIsZero = false;
        } else {
            return std::nullopt;
        }
    }
    if (digits == 0 || points > 1) return std::nullopt;
    double value = 0;
    const auto [rest, error] = std::from_chars(begin, end, value, std::chars_format::fixed);
    if (error == std::errc::result_out_of_range) {
        // Too many digits for a double: too large is no amount, too small is zero.
        if (!integerPartIsZero) return std::nullopt;
        value = 0;
    } else if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

// Group 1 is the candidate. \d takes any decimal digit, as the recogniser may return them; such a
// candidate then fails to convert and is skipped.
const QRegularExpression& amountPattern()
{
    static const QRegularExpression pattern = [] {
        QRegularExpression re(QStringLiteral("([-+\u2212\u2013\u2014]?\\(?\\$?-?\\d[\\d.,'\u00A0]*\\)?)"),
            QRegularExpression::UseUnicodePropertiesOption);
        re.optimize();
        return re;
    }();
    return pattern;
}

} // namespace

std::optional<double> parseNumber(QStringView input)
{
    QString text;
    text.reserve(input.size());
    for (const QChar c : input) {
        if (c != u'$' && c != u'\u00A0' && c != u' ') text.append(c);
    }
    // Accounting style: (12.50) is a loss of 12.50.
    const bool parenthesised = text.startsWith(u'(') && text.endsWith(u')');
    if (parenthesised) text = text.mid(1, text.size() - 2);
    for (QChar& c : text) {
        if (c == u'\u2212' || c == u'\u2013' || c == u'\u2014') c = u'-';
    }
    const qsizetype dots = text.count(u'.');
    const qsizetype commas = text.count(u',');
    if (dots >= 1 && commas >= 1) {
        text.remove(u',');
    } else if (dots == 0 && commas == 1) {
        text.replace(u',', u'.');
    } else if (commas >= 2) {
        text.remove(u',');
    }
    const auto value = decimalNumber(text);
    if (!value) return std::nullopt;
    return parenthesised ? -*value : *value;
}

std::optional<Candidate> lastCandidate(const QStringList& lines)
{
    std::optional<Candidate> candidate;
    for (const QString& line : lines) {
        auto matches = amountPattern().globalMatch(line);
        while (matches.hasNext()) {
            const QString matched = matches.next().captured(1);
            const auto value = parseNumber(matched);
            if (!value || std::fabs(*value) > maxMagnitude) continue;
            candidate = Candidate { *value, matched.trimmed() };
        }
    }
    return candidate;
}

std::optional<Result> choose(int frameCount, const std::function<std::optional<QStringList>(int frame)>& linesOfFrame)
{
    std::optional<Result> breakeven;
    for (int frame = 0; frame < frameCount; ++frame) {
        const auto lines = linesOfFrame(frame);
        if (!lines) continue;
        const auto candidate = lastCandidate(*lines);
        if (!candidate) continue;
        if (std::fabs(candidate->value) > zeroTolerance) {
            return Result { std::fabs(candidate->value), candidate->value < 0 ? TradeOutcome::loss : TradeOutcome::win,
                candidate->text };
        }
        // A later frame may still show the real figure.
        if (!breakeven) breakeven = Result { 0, TradeOutcome::breakeven, candidate->text };
    }
    return breakeven;
}

} // namespace PnLTextParser

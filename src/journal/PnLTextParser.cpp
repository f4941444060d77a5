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
// candidate then fails to convert and is skipped. The currency mark may be a euro, pound or yen
// sign as well as a dollar: "-€45.10" is a loss, not the 45.10 that follows a stray minus.
const QRegularExpression& amountPattern()
{
    static const QRegularExpression pattern = [] {
        QRegularExpression re(
            QStringLiteral("([-+\u2212\u2013\u2014]?\\(?[$\u20AC\u00A3\u00A5]?-?\\d[\\d.,'\u00A0]*\\)?)"),
            QRegularExpression::UseUnicodePropertiesOption);
        re.optimize();
        return re;
    }();
    return pattern;
}

bool isCurrencyMark(QChar c)
{
    return c == u'$' || c == u'\u20AC' || c == u'\u00A3' || c == u'\u00A5';
}

} // namespace

std::optional<double> parseNumber(QStringView input)
{
    QString text;
    text.reserve(input.size());
    for (const QChar c : input) {
        if (!isCurrencyMark(c) && c != u'\u00A0' && c != u' ') text.append(c);
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

namespace {

// Whether the match stands on its own: digits right after a separator, a sign, a slash or a
// parenthesis that the pattern didn't take are the tail of a figure the recogniser garbled
// ("-/.25" is no 25), and a figure followed by a minus ("12.50-") may be a loss written the
// accountants' other way. The sign of either is anybody's guess.
bool standsAlone(const QString& line, const QRegularExpressionMatch& match)
{
    const qsizetype start = match.capturedStart(1);
    const qsizetype end = match.capturedEnd(1);
    if (start > 0) {
        const QChar before = line.at(start - 1);
        if (before.isDigit() || QStringLiteral(".,/-+()\u2212\u2013\u2014").contains(before)) return false;
    }
    return end >= line.size() || !QStringLiteral("-\u2212\u2013\u2014").contains(line.at(end));
}

} // namespace

std::optional<Candidate> lastCandidate(const QStringList& lines)
{
    std::optional<Candidate> candidate;
    for (int index = 0; index < lines.size(); ++index) {
        auto matches = amountPattern().globalMatch(lines[index]);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            if (!standsAlone(lines[index], match)) continue;
            const QString matched = match.captured(1);
            const auto value = parseNumber(matched);
            if (!value || std::fabs(*value) > maxMagnitude) continue;
            candidate = Candidate { *value, matched.trimmed() };
        }
    }
    return candidate;
}

namespace {

// Whether the last amount of `reread` that begins with the candidate's digits is negative; nothing
// when none does.
std::optional<bool> negativeIn(const QStringList& reread, const Candidate& candidate)
{
    const auto digitsOf = [](const QString& text) {
        QString digits;
        for (const QChar c : text)
            if (c.isDigit()) digits.append(c);
        return digits;
    };
    const QString digits = digitsOf(candidate.text);
    std::optional<bool> negative;
    for (const QString& line : reread) {
        auto matches = amountPattern().globalMatch(line);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            if (!standsAlone(line, match)) continue;
            // The sign by the text alone: a second reading may set a separator differently
            // ("1.234.50") and still be the same figure with the same sign.
            QString text;
            for (const QChar c : match.captured(1))
                if (!isCurrencyMark(c) && c != u'\u00A0' && c != u' ') text.append(c);
            // Without the letters between them the second reading may run the figure into the
            // next one ("12.0002,500,000" for "12.00 Vol 2,500,000"): its start is the figure.
            if (!digitsOf(text).startsWith(digits)) continue;
            const QChar first = text.isEmpty() ? QChar() : text.front();
            negative = first == u'-' || first == u'\u2212' || first == u'\u2013' || first == u'\u2014'
                || text.startsWith(QStringLiteral("(-")) || (first == u'(' && text.endsWith(u')'));
        }
    }
    return negative;
}

} // namespace

bool confirms(const QStringList& reread, const Candidate& candidate)
{
    const std::optional<bool> negative = negativeIn(reread, candidate);
    if (!negative) return false;
    if (std::fabs(candidate.value) <= zeroTolerance) return true;
    return *negative == (candidate.value < 0);
}

bool contradicts(const QStringList& reread, const Candidate& candidate)
{
    const std::optional<bool> negative = negativeIn(reread, candidate);
    if (!negative || std::fabs(candidate.value) <= zeroTolerance) return false;
    return *negative != (candidate.value < 0);
}

Choice choose(int frameCount, const std::function<std::optional<QStringList>(int frame)>& linesOfFrame,
    const std::function<bool(int frame, const Candidate& candidate)>& rereadsAs)
{
    std::optional<Result> breakeven;
    for (int frame = 0; frame < frameCount; ++frame) {
        const auto lines = linesOfFrame(frame);
        if (!lines) continue;
        const auto candidate = lastCandidate(*lines);
        if (!candidate) continue;
        // The frame nearest the end that shows a figure is the one that counts: when its readings
        // disagree, an older frame is no answer either.
        if (!rereadsAs(frame, *candidate)) return Choice { std::nullopt, candidate->text };
        if (std::fabs(candidate->value) > zeroTolerance) {
            return Choice { Result { std::fabs(candidate->value),
                                candidate->value < 0 ? TradeOutcome::loss : TradeOutcome::win, candidate->text },
                std::nullopt };
        }
        // A later frame may still show the real figure.
        if (!breakeven) breakeven = Result { 0, TradeOutcome::breakeven, candidate->text };
    }
    return Choice { breakeven, std::nullopt };
}

} // namespace PnLTextParser

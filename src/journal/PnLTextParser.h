#pragma once

#include "journal/TradeOutcome.h"

#include <QString>
#include <QStringList>
#include <QStringView>

#include <functional>
#include <optional>

// Reads a profit-and-loss figure out of text recognised on a clip's last frames: which pieces of a
// line look like an amount, what number each one is, and which one tags the clip. No images and no
// OCR here; the detector that owns those hands in the recognised lines, in reading order.
//
// Stateless; callable from any thread.
namespace PnLTextParser {

// Larger figures are taken for something else on the panel (an account number, a volume).
constexpr double maxMagnitude = 1'000'000;
// A figure this close to zero is a break-even.
constexpr double zeroTolerance = 0.0001;

// "$1,234.56" is 1234.56 (so is "€1,234.56": any currency mark is dropped), "(12.50)" and "−8" are negative, a lone
// comma is a decimal comma
// ("12,50" is 12.5, and so is "1,234" 1.234), two or more commas are thousands marks. Nothing for
// anything that is not one number after that, such as "1'234" or "12.50-".
std::optional<double> parseNumber(QStringView text);

struct Candidate {
    double value = 0;
    QString text; // the matched text, trimmed
};

// The last amount in reading order whose magnitude is at most maxMagnitude: on a P&L panel that is
// the lowest, rightmost figure. No preference for signs, currency marks or size.
std::optional<Candidate> lastCandidate(const QStringList& lines);

// Whether `reread`, the same figure read a second time, shows the candidate's digits with its sign:
// the last amount there that begins with those digits decides (separators and currency marks
// aside). A zero needs only its digits. Nothing with those digits is a disagreement, as is another
// sign.
bool confirms(const QStringList& reread, const Candidate& candidate);
// Whether `reread` shows the candidate's digits, found as confirms() finds them, with the other
// sign. Nothing with those digits is no contradiction: a weaker reading may miss the figure.
bool contradicts(const QStringList& reread, const Candidate& candidate);

struct Result {
    double pnl = 0; // the magnitude; 0 for a break-even
    TradeOutcome outcome = TradeOutcome::breakeven; // win, loss or breakeven
    QString rawText;
};

// What the frames of a clip come to: a figure, nothing, or two readings of one frame that disagree
// (then there is no figure: a sign is never guessed).
struct Choice {
    std::optional<Result> result;
    std::optional<QString> disputed; // the figure as first read, when the second reading disagreed
};

// Looks at frames 0 .. frameCount-1 in order (`linesOfFrame` gives each one's recognised lines, or
// nothing when the frame could not be read) and stops at the first that shows a figure other than
// zero: its sign gives win or loss. A zero only counts when no frame shows anything else; then the
// first zero seen is the break-even. Every figure is read again (`rereadsAs(frame, candidate)`)
// before it counts; when the second reading disagrees the search ends there with the dispute.
Choice choose(int frameCount, const std::function<std::optional<QStringList>(int frame)>& linesOfFrame,
    const std::function<bool(int frame, const Candidate& candidate)>& rereadsAs);

} // namespace PnLTextParser

// Recognised text of any content, one line a line and one frame a form feed: a figure chosen from
// it is a real number within the limits, its text reads back as that number, and its outcome
// agrees with its sign.
#include "FuzzSupport.h"
#include "journal/PnLTextParser.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString text = QString::fromUtf8(bytes);
    const QStringList frames = text.split(u'\f');

    if (const auto value = PnLTextParser::parseNumber(text)) FUZZ_CHECK(std::isfinite(*value), bytes);

    // Each frame read again as the next one: readings that agree and readings that don't.
    const auto choice = PnLTextParser::choose(
        static_cast<int>(frames.size()),
        [&frames](int frame) -> std::optional<QStringList> { return frames[frame].split(u'\n'); },
        [&frames](int frame, const PnLTextParser::Candidate& candidate) {
            return PnLTextParser::confirms(frames[(frame + 1) % frames.size()].split(u'\n'), candidate);
        });
    if (choice.disputed) FUZZ_CHECK(!choice.result && !choice.disputed->isEmpty(), bytes);
    const auto& result = choice.result;
    if (!result) return 0;
    FUZZ_CHECK(std::isfinite(result->pnl) && result->pnl >= 0 && result->pnl <= PnLTextParser::maxMagnitude, bytes);
    FUZZ_CHECK(result->rawText == result->rawText.trimmed() && !result->rawText.isEmpty(), bytes);
    const auto again = PnLTextParser::parseNumber(result->rawText);
    FUZZ_CHECK(again.has_value(), bytes);
    switch (result->outcome) {
    case TradeOutcome::win:
        FUZZ_CHECK(*again == result->pnl && result->pnl > PnLTextParser::zeroTolerance, bytes);
        break;
    case TradeOutcome::loss:
        FUZZ_CHECK(*again == -result->pnl && result->pnl > PnLTextParser::zeroTolerance, bytes);
        break;
    case TradeOutcome::breakeven:
        FUZZ_CHECK(result->pnl == 0 && std::fabs(*again) <= PnLTextParser::zeroTolerance, bytes);
        break;
    case TradeOutcome::unset:
        FUZZ_CHECK(false, bytes);
    }
    return 0;
}

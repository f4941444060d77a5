// A broker's trade file of any content: every trade read has a key of its own, a finite time and an
// amount within the limit; skipped rows are named in file order; a trade stores in a sidecar and
// reads back equal; and the journal's export of the trades reads back as the same trades.
#include "FuzzSupport.h"
#include "journal/ClipMeta.h"
#include "journal/JournalExport.h"
#include "journal/TradeFileReader.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const TradeFileReader::Result result = TradeFileReader::read(bytes);
    FUZZ_CHECK(result.error.isEmpty() || (result.trades.isEmpty() && result.skipped.empty()), bytes);

    QSet<QString> keys;
    for (const ClipTrade& t : result.trades) {
        FUZZ_CHECK(!t.key.isEmpty() && !keys.contains(t.key), bytes);
        keys.insert(t.key);
        FUZZ_CHECK(std::isfinite(t.exitTime), bytes);
        FUZZ_CHECK(!t.pnl || ClipMeta::isPlausiblePnL(*t.pnl), bytes);
        FUZZ_CHECK(t.fees >= 0 && std::isfinite(t.fees), bytes);
        FUZZ_CHECK(t.outcome != TradeOutcome::unset, bytes);
        FUZZ_CHECK(ClipTrade::fromJson(t.toJson()) == t, bytes);
    }
    for (size_t i = 1; i < result.skipped.size(); ++i)
        FUZZ_CHECK(result.skipped[i - 1].line < result.skipped[i].line, bytes);

    const TradeFileReader::Result back = TradeFileReader::read(JournalExport::csv({}, result.trades));
    FUZZ_CHECK(back.error.isEmpty(), bytes);
    FUZZ_CHECK(back.skipped.empty() && back.trades.size() == result.trades.size(), bytes);
    // The export lists the trades by time, ties in their order, as a stable sort of the originals.
    QList<ClipTrade> sorted = result.trades;
    std::stable_sort(
        sorted.begin(), sorted.end(), [](const ClipTrade& a, const ClipTrade& b) { return a.exitTime < b.exitTime; });
    for (qsizetype i = 0; i < sorted.size(); ++i) {
        const ClipTrade& a = sorted[i];
        const ClipTrade& b = back.trades[i];
        FUZZ_CHECK(a.pnl == b.pnl && a.fees == b.fees && a.outcome == b.outcome && a.unit == b.unit, bytes);
        FUZZ_CHECK(a.symbol == b.symbol && a.side == b.side && a.quantity == b.quantity && a.notes == b.notes, bytes);
        // Times are written to the millisecond.
        FUZZ_CHECK(std::fabs(a.exitTime - b.exitTime) <= 0.0005, bytes);
    }
    return 0;
}

#include "journal/TradeImport.h"

#include "journal/ClipAutoDetect.h"

#include <QSet>

#include <cmath>
#include <map>

namespace TradeImport {

namespace {

QString counted(int n, const char* one, const char* many)
{
    return QString::number(n) + u' ' + QLatin1StringView(n == 1 ? one : many);
}

} // namespace

ClipMeta withTrades(ClipMeta meta, const QList<ClipTrade>& added)
{
    meta.trades += added;
    if (ClipAutoDetect::isTagged(meta) && !meta.tagOrigin) return meta;
    if (meta.trades.isEmpty()) return meta;
    const PnLUnit unit = meta.trades.front().unit;
    double sum = 0;
    bool anyAmount = false;
    for (const ClipTrade& t : meta.trades) {
        if (!t.pnl || t.unit != unit) continue;
        sum += t.signedPnL();
        anyAmount = true;
    }
    meta.unit = unit;
    meta.tagOrigin = TagOrigin::imported;
    if (!anyAmount) {
        meta.pnl.reset();
        meta.outcome = meta.trades.front().outcome;
        return meta;
    }
    meta.pnl = std::fabs(sum);
    meta.outcome = sum > 0 ? TradeOutcome::win : sum < 0 ? TradeOutcome::loss : TradeOutcome::breakeven;
    return meta;
}

Plan plan(const std::vector<Clip>& clips, const QList<ClipTrade>& withoutClipBefore, const QList<ClipTrade>& trades)
{
    Plan result;
    QSet<QString> known;
    for (const Clip& c : clips)
        for (const ClipTrade& t : c.meta.trades)
            known.insert(t.key);
    for (const ClipTrade& t : withoutClipBefore)
        known.insert(t.key);

    std::vector<TradeMatcher::Span> spans;
    spans.reserve(clips.size());
    for (const Clip& c : clips)
        spans.push_back(c.span);
    const TradeMatcher matcher(std::move(spans));

    std::map<int, QList<ClipTrade>> byClip; // ordered, so that changes come in the clips' order
    std::map<int, int> leftOut;
    for (const ClipTrade& t : trades) {
        if (known.contains(t.key)) {
            ++result.alreadyImported;
            continue;
        }
        known.insert(t.key);
        const int clip = matcher.clipFor(t.exitTime);
        if (clip < 0) {
            result.withoutClip.push_back(t);
        } else if (!clips[size_t(clip)].readable) {
            ++leftOut[clip];
        } else {
            byClip[clip].push_back(t);
            ++result.matched;
        }
    }
    for (auto& [clip, added] : byClip)
        result.changes.push_back({ clip, withTrades(clips[size_t(clip)].meta, added), int(added.size()) });
    for (const auto& [clip, n] : leftOut)
        result.leftOut.push_back({ clip, n });
    return result;
}

QString summary(int read, int matched, int withoutClip, int alreadyImported, const std::vector<int>& skippedLines)
{
    QString text = counted(read, "trade", "trades") + QStringLiteral(": ") + QString::number(matched)
        + QStringLiteral(" matched to clips, ") + QString::number(withoutClip) + QStringLiteral(" without a clip, ");
    if (alreadyImported > 0) text += QString::number(alreadyImported) + QStringLiteral(" already imported, ");
    text += counted(int(skippedLines.size()), "row skipped", "rows skipped");
    if (!skippedLines.empty()) {
        // A file broken throughout would make a sentence of thousands of numbers: the first few say
        // enough, the rest are counted.
        constexpr size_t listed = 20;
        QStringList lines;
        for (size_t i = 0; i < skippedLines.size() && i < listed; ++i)
            lines << QString::number(skippedLines[i]);
        if (skippedLines.size() > listed) lines << QStringLiteral("…");
        text += (skippedLines.size() == 1 ? QStringLiteral(" (line ") : QStringLiteral(" (lines "))
            + lines.join(QStringLiteral(", ")) + u')';
    }
    return text;
}

} // namespace TradeImport

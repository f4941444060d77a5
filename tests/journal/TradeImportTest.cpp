#include "journal/TradeImport.h"

#include "journal/ClipAutoDetect.h"
#include "journal/TradeMatcher.h"

#include <gtest/gtest.h>

namespace {

ClipTrade trade(const QString& key, double exit, double pnl)
{
    ClipTrade t;
    t.key = key;
    t.symbol = QStringLiteral("ES");
    t.exitTime = exit;
    t.pnl = pnl;
    t.outcome = pnl > 0 ? TradeOutcome::win : pnl < 0 ? TradeOutcome::loss : TradeOutcome::breakeven;
    return t;
}

TradeImport::Clip clip(const QString& name, double start, double end, ClipMeta meta = {})
{
    return { QUrl::fromLocalFile(QStringLiteral("/clips/") + name), { start, end }, std::move(meta), true };
}

} // namespace

TEST(TradeMatcher, HoldingSpanFirstThenTheNextEndWithinAMinute)
{
    // a: 100..130; b: 120..200 (overlaps a); c: 400..420.
    const TradeMatcher m({ { 100, 130 }, { 120, 200 }, { 400, 420 } });
    EXPECT_EQ(m.clipFor(100), 0); // the span's first instant
    EXPECT_EQ(m.clipFor(125), 0); // both hold it: the one that ended first
    EXPECT_EQ(m.clipFor(130), 0);
    EXPECT_EQ(m.clipFor(131), 1);
    EXPECT_EQ(m.clipFor(200), 1);
    EXPECT_EQ(m.clipFor(201), -1); // c starts 199 s later and ends 219 s later: too late
    EXPECT_EQ(m.clipFor(360), 2); // before c began, but c ended 60 s after
    EXPECT_EQ(m.clipFor(359.5), -1);
    EXPECT_EQ(m.clipFor(50), -1);
    EXPECT_EQ(m.clipFor(421), -1);
    EXPECT_EQ(TradeMatcher({}).clipFor(0), -1);
}

TEST(TradeImport, TradesGoToTheirClipsAndASecondImportAddsNothing)
{
    ClipMeta userTagged;
    userTagged.outcome = TradeOutcome::win;
    userTagged.pnl = 99;
    userTagged.notes = QStringLiteral("mine");
    ClipMeta detected = ClipAutoDetect::withResult({}, { 7.25, TradeOutcome::win, QStringLiteral("7.25") });
    std::vector<TradeImport::Clip> clips { clip("a.mp4", 0, 100), clip("b.mp4", 200, 300, userTagged),
        clip("c.mp4", 400, 500, detected) };
    const QList<ClipTrade> trades { trade("id:1", 50, 30), trade("id:2", 60, -10), trade("id:3", 250, -40),
        trade("id:4", 450, -7.25), trade("id:5", 1000, 12) };

    const TradeImport::Plan plan = TradeImport::plan(clips, {}, trades);
    EXPECT_EQ(plan.matched, 4);
    ASSERT_EQ(plan.withoutClip.size(), 1);
    EXPECT_EQ(plan.withoutClip[0].key, "id:5");
    ASSERT_EQ(plan.changes.size(), 3u);

    // Two trades on one clip: its amount is their net sum, and the broker is its origin.
    const ClipMeta& a = plan.changes[0].meta;
    EXPECT_EQ(plan.changes[0].added, 2);
    EXPECT_EQ(a.trades.size(), 2);
    EXPECT_EQ(a.outcome, TradeOutcome::win);
    EXPECT_EQ(a.pnl, 20.0);
    EXPECT_EQ(a.tagOrigin, TagOrigin::imported);
    // The user's own tag stays; the trade is kept beside it.
    const ClipMeta& b = plan.changes[1].meta;
    EXPECT_EQ(b.outcome, TradeOutcome::win);
    EXPECT_EQ(b.pnl, 99.0);
    EXPECT_FALSE(b.tagOrigin.has_value());
    EXPECT_EQ(b.trades.size(), 1);
    EXPECT_EQ(b.notes, "mine");
    // OCR read a loss as a win: the broker's figure replaces it.
    const ClipMeta& c = plan.changes[2].meta;
    EXPECT_EQ(c.outcome, TradeOutcome::loss);
    EXPECT_EQ(c.signedPnL(), -7.25);
    EXPECT_EQ(c.tagOrigin, TagOrigin::imported);

    // The same file against what the first import left: nothing new.
    for (const auto& change : plan.changes)
        clips[size_t(change.clip)].meta = change.meta;
    const TradeImport::Plan again = TradeImport::plan(clips, plan.withoutClip, trades);
    EXPECT_TRUE(again.changes.empty());
    EXPECT_TRUE(again.withoutClip.isEmpty());
    EXPECT_EQ(again.alreadyImported, 5);

    // A later trade on a clip already holding imported ones adds to its sum.
    const TradeImport::Plan more = TradeImport::plan(clips, plan.withoutClip, { trade("id:6", 70, -25) });
    ASSERT_EQ(more.changes.size(), 1u);
    EXPECT_EQ(more.changes[0].meta.signedPnL(), -5);
    EXPECT_EQ(more.changes[0].meta.outcome, TradeOutcome::loss);
}

TEST(TradeImport, AClipWhoseSidecarCantBeReadIsLeftAlone)
{
    std::vector<TradeImport::Clip> clips { clip("a.mp4", 0, 100) };
    clips[0].readable = false;
    const TradeImport::Plan plan = TradeImport::plan(clips, {}, { trade("id:1", 50, 30), trade("id:2", 51, 3) });
    EXPECT_TRUE(plan.changes.empty());
    EXPECT_TRUE(plan.withoutClip.isEmpty());
    ASSERT_EQ(plan.leftOut.size(), 1u);
    EXPECT_EQ(plan.leftOut[0].trades, 2);
}

TEST(TradeImport, Summary)
{
    EXPECT_EQ(TradeImport::summary(12, 8, 3, 0, { 4, 9 }),
        "12 trades: 8 matched to clips, 3 without a clip, 2 rows skipped (lines 4, 9)");
    EXPECT_EQ(TradeImport::summary(1, 0, 0, 1, {}),
        "1 trade: 0 matched to clips, 0 without a clip, 1 already imported, 0 rows skipped");
    std::vector<int> many(25);
    for (int i = 0; i < 25; ++i)
        many[size_t(i)] = i + 2;
    EXPECT_TRUE(TradeImport::summary(0, 0, 0, 0, many).endsWith("20, 21, …)"));
}

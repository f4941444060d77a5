#include "journal/JournalMetrics.h"

#include "journal/ClipEntry.h"
#include "journal/FormatPnL.h"
#include "journal/ReferenceDate.h"

#include <QDateTime>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

namespace {

// A tagged clip at a local time given as "yyyy-MM-dd HH:mm".
ClipEntry clip(TradeOutcome outcome, std::optional<double> pnl, const char* localTime, PnLUnit unit = PnLUnit::dollars)
{
    ClipEntry entry;
    entry.url = QUrl::fromLocalFile(QStringLiteral("/journal/%1.mp4").arg(QString::fromLatin1(localTime)));
    entry.meta.outcome = outcome;
    entry.meta.pnl = pnl;
    entry.meta.unit = unit;
    const QDateTime at = QDateTime::fromString(QString::fromLatin1(localTime), QStringLiteral("yyyy-MM-dd HH:mm"));
    entry.parsedDate = ReferenceDate::fromDateTime(at);
    return entry;
}

// Trades one a day, in the order given; the store's list is newest first, so it is built reversed.
QList<ClipEntry> trades(std::initializer_list<double> amounts)
{
    QList<ClipEntry> clips;
    int day = 1;
    for (double amount : amounts) {
        const QByteArray at = QStringLiteral("2024-05-%1 10:00").arg(day++, 2, 10, QLatin1Char('0')).toLatin1();
        clips.prepend(clip(amount < 0 ? TradeOutcome::loss : TradeOutcome::win, amount, at.constData()));
    }
    return clips;
}

// Sets the process's time zone for one test and puts the old one back.
class TimeZoneScope {
public:
    explicit TimeZoneScope(const char* zone)
        : previous(qgetenv("TZ"))
        , hadPrevious(qEnvironmentVariableIsSet("TZ"))
    {
        // No tzset() here: the metrics must notice the new zone by themselves.
        qputenv("TZ", zone);
    }
    ~TimeZoneScope()
    {
        if (hadPrevious) {
            qputenv("TZ", previous);
        } else {
            qunsetenv("TZ");
        }
        tzset();
    }

private:
    QByteArray previous;
    bool hadPrevious;
};

} // namespace

TEST(JournalMetrics, EmptyJournal)
{
    const JournalMetrics m({}, PnLUnit::dollars);
    EXPECT_EQ(m.netPnL(), 0);
    EXPECT_EQ(m.maxDrawdown(), 0);
    EXPECT_EQ(m.currentDrawdown(), 0);
    EXPECT_EQ(m.equityCurve(), std::vector<double> { 0.0 });
    EXPECT_EQ(m.streaks(), JournalMetrics::Streaks {});
    EXPECT_FALSE(m.winRate() || m.profitFactor() || m.avgWinLossRatio() || m.expectancy() || m.sharpe() || m.sortino()
        || m.maxDrawdownPct() || m.drawdownRecoveryTrades() || m.kelly() || m.compassScore() || m.bestTrade()
        || m.worstDay());
    // The Overview's first card and the Max Drawdown card: no minus sign on -0.
    EXPECT_EQ(formatPnL(m.netPnL(), PnLUnit::dollars, 2), QStringLiteral("$0.00"));
    EXPECT_EQ(formatPnL(-m.maxDrawdown(), PnLUnit::dollars, 2), QStringLiteral("$0.00"));
}

TEST(JournalMetrics, OneTradeOfTen)
{
    const JournalMetrics m(trades({ 10 }), PnLUnit::dollars);
    EXPECT_EQ(m.equityCurve(), (std::vector<double> { 0, 10 }));
    EXPECT_EQ(m.maxDrawdown(), 0);
    EXPECT_FALSE(m.drawdownRecoveryTrades());
    EXPECT_EQ(m.expectancy(), 10);
    EXPECT_FALSE(m.sharpe()); // one day is fewer than two returns
    EXPECT_FALSE(m.profitFactor()); // no loss: no figure rather than infinity
    EXPECT_EQ(m.winRate(), 1.0);
}

TEST(JournalMetrics, DrawdownsAndRecovery)
{
    {
        // Never above 0: a drawdown, but no percentage of a peak.
        const JournalMetrics m(trades({ -10, 10 }), PnLUnit::dollars);
        EXPECT_EQ(m.equityCurve(), (std::vector<double> { 0, -10, 0 }));
        EXPECT_EQ(m.maxDrawdown(), 10);
        EXPECT_FALSE(m.maxDrawdownPct());
        EXPECT_EQ(m.drawdownRecoveryTrades(), 1);
    }
    {
        // Worst fall of 5 begins at index 2; the target c[1] = 10 is regained at index 3.
        const JournalMetrics m(trades({ 10, -5, 5, 1 }), PnLUnit::dollars);
        EXPECT_EQ(m.equityCurve(), (std::vector<double> { 0, 10, 5, 10, 11 }));
        EXPECT_EQ(m.maxDrawdown(), 5);
        EXPECT_EQ(m.maxDrawdownPct(), 0.5);
        EXPECT_EQ(m.drawdownRecoveryTrades(), 1);
        EXPECT_EQ(m.currentDrawdown(), 0);
    }
    {
        // Coming back exactly to the old peak does not end the episode: the deeper fall after it
        // still counts from index 2, and the count runs to the new high at index 5.
        const JournalMetrics m(trades({ 10, -5, 5, -8, 20 }), PnLUnit::dollars);
        EXPECT_EQ(m.maxDrawdown(), 8);
        EXPECT_EQ(m.drawdownRecoveryTrades(), 3);
    }
    {
        // Not yet made good; the current drawdown is what is still missing.
        const JournalMetrics m(trades({ 10, -5, 2 }), PnLUnit::dollars);
        EXPECT_FALSE(m.drawdownRecoveryTrades());
        EXPECT_EQ(m.currentDrawdown(), 3);
        EXPECT_EQ(formatPnL(-m.currentDrawdown(), PnLUnit::dollars, 2), QStringLiteral("-$3.00"));
    }
    {
        // Of two equal falls the first one's peak is the base of the percentage.
        const JournalMetrics m(trades({ 10, -5, 10, -5 }), PnLUnit::dollars);
        EXPECT_EQ(m.maxDrawdownPct(), 0.5);
    }
}

TEST(JournalMetrics, TwoTradesOnOneDayMakeOneDailyReturn)
{
    QList<ClipEntry> clips { clip(TradeOutcome::loss, 5, "2024-05-02 15:00"),
        clip(TradeOutcome::win, 5, "2024-05-01 16:00"), clip(TradeOutcome::win, 10, "2024-05-01 09:30") };
    const JournalMetrics m(clips, PnLUnit::dollars);
    EXPECT_EQ(m.tradePnL(), (std::vector<double> { 10, 5, -5 }));
    EXPECT_EQ(m.dailyReturns(), (std::vector<double> { 15, -5 }));
    EXPECT_EQ(m.bestDay(), 15);
    EXPECT_EQ(m.worstTrade(), -5);
    // Days 15 and -5: mean 5, population deviation 10.
    EXPECT_DOUBLE_EQ(*m.sharpe(), 0.5 * JournalMetrics::annualisation);
    // Downside variance over all days: 25 / 2.
    EXPECT_DOUBLE_EQ(*m.sortino(), 5 / std::sqrt(12.5) * JournalMetrics::annualisation);

    // The same trades on one day give a single return, and no Sharpe.
    clips[0] = clip(TradeOutcome::loss, 5, "2024-05-01 17:00");
    EXPECT_FALSE(JournalMetrics(clips, PnLUnit::dollars).sharpe());

    // Equal days: no deviation, no Sharpe; no red day, no Sortino.
    const JournalMetrics flat(trades({ 4, 4, 4 }), PnLUnit::dollars);
    EXPECT_FALSE(flat.sharpe());
    EXPECT_FALSE(flat.sortino());
}

TEST(JournalMetrics, OtherUnitsCountInWinRateAndStreaksOnly)
{
    const QList<ClipEntry> clips { clip(TradeOutcome::win, 2, "2024-05-03 10:00", PnLUnit::R),
        clip(TradeOutcome::win, std::nullopt, "2024-05-02 10:00"), clip(TradeOutcome::loss, 30, "2024-05-01 10:00"),
        clip(TradeOutcome::unset, 99, "2024-04-30 10:00") };
    const JournalMetrics dollars(clips, PnLUnit::dollars);
    EXPECT_EQ(dollars.tradeCount(), 1);
    EXPECT_EQ(dollars.taggedCount(), 3);
    EXPECT_EQ(dollars.netPnL(), -30);
    EXPECT_EQ(dollars.winRate(), 2.0 / 3.0);
    EXPECT_EQ(dollars.streaks(), (JournalMetrics::Streaks { 2, 2, 1 }));
    EXPECT_EQ(dollars.dailyCount().size(), 3u);
    EXPECT_EQ(dollars.dailyPnL().size(), 1u);

    const JournalMetrics r(clips, PnLUnit::R);
    EXPECT_EQ(r.netPnL(), 2);
    EXPECT_EQ(r.winRate(), dollars.winRate());
    EXPECT_EQ(r.streaks(), dollars.streaks());
    EXPECT_EQ(formatPnL(*r.expectancy(), PnLUnit::R, 2), QStringLiteral("2.00R"));
}

TEST(JournalMetrics, SignsFollowTheOutcome)
{
    const QList<ClipEntry> clips { clip(TradeOutcome::breakeven, 12, "2024-05-05 10:00"),
        clip(TradeOutcome::unset, -3, "2024-05-04 10:00"), clip(TradeOutcome::loss, 50, "2024-05-03 10:00"),
        clip(TradeOutcome::win, -50, "2024-05-02 10:00"), clip(TradeOutcome::win, std::nullopt, "2024-05-01 10:00") };
    EXPECT_EQ(clips[0].meta.signedPnL(), 0);
    EXPECT_EQ(clips[1].meta.signedPnL(), -3);
    EXPECT_EQ(clips[4].meta.signedPnL(), 0);
    const JournalMetrics m(clips, PnLUnit::dollars);
    // The breakeven with an amount is a trade of 0 that pulls the mean towards 0; unset is no trade.
    EXPECT_EQ(m.tradePnL(), (std::vector<double> { 50, -50, 0 }));
    EXPECT_EQ(m.expectancy(), 0);
    EXPECT_EQ(m.profitFactor(), 1.0);
    EXPECT_EQ(m.avgWinLossRatio(), 1.0);
}

TEST(JournalMetrics, StreaksKellyAndConsistency)
{
    // Oldest first: W W BE L L L W. A breakeven neither continues nor breaks a streak.
    const QList<ClipEntry> clips { clip(TradeOutcome::win, 10, "2024-05-07 10:00"),
        clip(TradeOutcome::loss, 10, "2024-05-06 10:00"), clip(TradeOutcome::loss, 10, "2024-05-05 10:00"),
        clip(TradeOutcome::loss, 10, "2024-05-04 10:00"), clip(TradeOutcome::breakeven, 0, "2024-05-03 10:00"),
        clip(TradeOutcome::win, 10, "2024-05-02 10:00"), clip(TradeOutcome::win, 10, "2024-05-01 10:00") };
    const JournalMetrics m(clips, PnLUnit::dollars);
    EXPECT_EQ(m.streaks(), (JournalMetrics::Streaks { 1, 2, 3 }));
    // Three wins of 10 against three losses of 10: Kelly 0.5 - 0.5 / 1.
    EXPECT_EQ(m.kelly(), 0.0);
    // Mean 0: the flat score for no edge.
    EXPECT_EQ(m.consistencyScore(), 0.3);

    // One win against three losses of equal size: a negative Kelly, not clamped.
    const JournalMetrics losing(trades({ 10, -10, -10, -10 }), PnLUnit::dollars);
    EXPECT_EQ(losing.kelly(), -0.5);
    EXPECT_EQ(formatFixed(*losing.kelly() * 100, 1) + QLatin1Char('%'), QStringLiteral("-50.0%"));

    EXPECT_EQ(JournalMetrics(trades({ 5, 5 }), PnLUnit::dollars).consistencyScore(), 1.0);
    // Mean 1, deviation 2: 1 - 0.4 × 2 = 0.2.
    EXPECT_DOUBLE_EQ(JournalMetrics(trades({ 3, -1 }), PnLUnit::dollars).consistencyScore(), 0.2);
    // Mean 1, deviation 3: clamped at 0.
    EXPECT_EQ(JournalMetrics(trades({ 4, -2 }), PnLUnit::dollars).consistencyScore(), 0.0);
}

TEST(JournalMetrics, CompassScore)
{
    QList<ClipEntry> clips { clip(TradeOutcome::win, std::nullopt, "2024-05-04 10:00"),
        clip(TradeOutcome::loss, std::nullopt, "2024-05-03 10:00"),
        clip(TradeOutcome::loss, std::nullopt, "2024-05-02 10:00"),
        clip(TradeOutcome::loss, std::nullopt, "2024-05-01 10:00") };
    EXPECT_FALSE(JournalMetrics(clips, PnLUnit::dollars).compassScore());

    // Five tagged, none with an amount: win share 7.5, sample share 2.5, consistency share 12.5; 22.5
    // rounds away from zero.
    clips.append(clip(TradeOutcome::breakeven, std::nullopt, "2024-04-30 10:00"));
    EXPECT_EQ(JournalMetrics(clips, PnLUnit::dollars).compassScore(), 23);

    // Thirty tagged with amounts, 20 wins and 10 losses of 10: win part 20, profit factor 2 earns two
    // thirds of its part (20), the whole sample part (15), and no consistency part, as the mean of
    // 10/3 is small against a deviation of 9.4.
    QList<ClipEntry> many;
    for (int i = 0; i < 30; ++i) {
        const QByteArray at
            = QDateTime(QDate(2024, 1, 1).addDays(i), QTime(10, 0)).toString("yyyy-MM-dd HH:mm").toLatin1();
        many.prepend(clip(i % 3 == 2 ? TradeOutcome::loss : TradeOutcome::win, 10, at.constData()));
    }
    const JournalMetrics m(many, PnLUnit::dollars);
    EXPECT_EQ(m.profitFactor(), 2.0);
    EXPECT_EQ(m.consistencyScore(), 0.0);
    EXPECT_EQ(m.compassScore(), 55);
}

TEST(JournalMetrics, DayKeysFollowTheUsersTimeZone)
{
    TimeZoneScope berlin("Europe/Berlin");
    // 2024-03-31 has 23 hours in Berlin and 2024-10-27 has 25: first and last minute of each fall
    // on one day, and the minute before midnight on another.
    const QList<ClipEntry> clips { clip(TradeOutcome::win, 32, "2024-11-01 00:30"),
        clip(TradeOutcome::win, 1, "2024-10-27 23:59"), clip(TradeOutcome::win, 2, "2024-10-27 00:00"),
        clip(TradeOutcome::win, 4, "2024-03-31 23:59"), clip(TradeOutcome::win, 8, "2024-03-31 00:00"),
        clip(TradeOutcome::win, 16, "2024-03-30 23:59") };
    const JournalMetrics m(clips, PnLUnit::dollars);
    const std::map<QDate, double> byDay = m.dailyPnL();
    ASSERT_EQ(byDay.size(), 4u);
    EXPECT_EQ(byDay.at(QDate(2024, 11, 1)), 32); // 23:30 UTC the day before
    EXPECT_EQ(byDay.at(QDate(2024, 3, 30)), 16);
    EXPECT_EQ(byDay.at(QDate(2024, 3, 31)), 12);
    EXPECT_EQ(byDay.at(QDate(2024, 10, 27)), 3);
    // A day's date is its start: midnight in Berlin, 23:00 UTC in winter, 22:00 in summer.
    const auto days = m.daily();
    EXPECT_EQ(ReferenceDate::toDateTime(days[1].date).toUTC(), QDateTime(QDate(2024, 3, 30), QTime(23, 0), Qt::UTC));
    EXPECT_EQ(ReferenceDate::toDateTime(days[2].date).toUTC(), QDateTime(QDate(2024, 10, 26), QTime(22, 0), Qt::UTC));

    // Read in either order, the half hour after a 23-hour day belongs to the next day.
    const QList<ClipEntry> ascending { clip(TradeOutcome::win, 1, "2024-03-31 12:00"),
        clip(TradeOutcome::win, 2, "2024-04-01 00:30") };
    EXPECT_EQ(JournalMetrics(ascending, PnLUnit::dollars).dailyCount().size(), 2u);

    // The same moments seen from New York: the day key is taken at read time, so they regroup.
    TimeZoneScope newYork("America/New_York");
    const std::map<QDate, double> regrouped = JournalMetrics(clips, PnLUnit::dollars).dailyPnL();
    ASSERT_EQ(regrouped.size(), 5u);
    EXPECT_EQ(regrouped.at(QDate(2024, 3, 30)), 16 + 8);
    EXPECT_EQ(regrouped.at(QDate(2024, 10, 26)), 2);
}

TEST(JournalMetrics, ImportedTradesCountOneByOneAndTheFilterNarrowsBySymbolAndTag)
{
    const auto imported = [](const char* symbol, double pnl, const char* localTime) {
        ClipTrade t;
        t.key = QString::fromLatin1(localTime);
        t.symbol = QString::fromLatin1(symbol);
        t.pnl = pnl;
        t.outcome = pnl < 0 ? TradeOutcome::loss : TradeOutcome::win;
        t.exitTime = ReferenceDate::fromDateTime(
            QDateTime::fromString(QString::fromLatin1(localTime), QStringLiteral("yyyy-MM-dd HH:mm")));
        return t;
    };
    // A clip tagged from two trades (+30, -10) counts as both; one the user tagged by hand over its
    // trade counts once, as the user said; a trade without a clip counts too.
    ClipEntry fromTrades = clip(TradeOutcome::win, 20, "2024-05-02 10:00");
    fromTrades.meta.tagOrigin = TagOrigin::imported;
    fromTrades.meta.trades = { imported("ES", 30, "2024-05-02 09:00"), imported("NQ", -10, "2024-05-02 09:30") };
    fromTrades.meta.tags = QStringList { "breakout" };
    ClipEntry byHand = clip(TradeOutcome::loss, 50, "2024-05-03 10:00");
    byHand.meta.ticker = QStringLiteral("cl");
    byHand.meta.trades = { imported("CL", 999, "2024-05-03 09:00") };
    byHand.meta.tags = QStringList { "Fade", "breakout" };
    const QList<ClipTrade> withoutClip { imported("ES", 5, "2024-05-01 12:00") };
    const QList<ClipEntry> clips { byHand, fromTrades };

    const JournalMetrics all(clips, PnLUnit::dollars, withoutClip);
    EXPECT_EQ(all.tradePnL(), (std::vector<double> { 5, 30, -10, -50 }));
    EXPECT_EQ(all.netPnL(), -25);
    EXPECT_EQ(all.winRate(), 0.5);

    const JournalMetrics es(clips, PnLUnit::dollars, withoutClip, { QStringLiteral("es"), std::nullopt });
    EXPECT_EQ(es.tradePnL(), (std::vector<double> { 5, 30 }));
    // The hand-tagged clip is found by its trades' symbol and by the one the user typed.
    const JournalMetrics cl(clips, PnLUnit::dollars, withoutClip, { QStringLiteral("CL"), std::nullopt });
    EXPECT_EQ(cl.tradePnL(), (std::vector<double> { -50 }));
    // Tags belong to clips: the trade without one never passes a tag filter.
    const JournalMetrics breakout(clips, PnLUnit::dollars, withoutClip, { std::nullopt, QStringLiteral("BREAKOUT") });
    EXPECT_EQ(breakout.tradePnL(), (std::vector<double> { 30, -10, -50 }));
    const JournalMetrics both(
        clips, PnLUnit::dollars, withoutClip, { QStringLiteral("NQ"), QStringLiteral("breakout") });
    EXPECT_EQ(both.tradePnL(), (std::vector<double> { -10 }));

    EXPECT_EQ(JournalFilter::symbols(clips, withoutClip), (QStringList { "cl", "ES", "NQ" }));
    EXPECT_EQ(JournalFilter::tags(clips), (QStringList { "breakout", "Fade" }));
}

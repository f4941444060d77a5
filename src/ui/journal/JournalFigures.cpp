#include "ui/journal/JournalFigures.h"

#include "journal/FormatPnL.h"

#include <algorithm>
#include <cmath>

namespace JournalFigures {

const QString absent = QStringLiteral("—");

namespace {

QString fixedOrAbsent(const std::optional<double>& value, int decimals)
{
    return value ? formatFixed(*value, decimals) : absent;
}

QString percentOrAbsent(const std::optional<double>& fraction, int decimals)
{
    return fraction ? formatFixed(*fraction * 100, decimals) + QLatin1Char('%') : absent;
}

QString pnlOrAbsent(const std::optional<double>& value, PnLUnit unit, int decimals)
{
    return value ? formatPnL(*value, unit, decimals) : absent;
}

MetricTone signTone(double value)
{
    return value > 0 ? MetricTone::pos : value < 0 ? MetricTone::neg : MetricTone::neutral;
}

} // namespace

QString streakText(int current)
{
    if (current == 0) return absent;
    return current > 0 ? QStringLiteral("%1W").arg(current) : QStringLiteral("%1L").arg(-current);
}

MetricTone streakTone(int current)
{
    return signTone(current);
}

QString compassCaption(bool hasScore)
{
    return hasScore ? QStringLiteral("Win rate, profit factor, sample size, consistency.")
                    : QStringLiteral("Tag at least 5 clips to see your score.");
}

std::vector<MetricFigure> overviewCards(const JournalMetrics& m, PnLUnit unit)
{
    const double net = m.netPnL();
    const std::optional<double> factor = m.profitFactor();
    const std::optional<double> sharpe = m.sharpe();
    const double drawdown = m.maxDrawdown();
    const std::optional<double> expectancy = m.expectancy();
    const JournalMetrics::Streaks streaks = m.streaks();
    return {
        { QStringLiteral("Net P&L"), formatPnL(net, unit, 2), QStringLiteral("Total profit minus losses"),
            signTone(net) },
        { QStringLiteral("Win Rate"), percentOrAbsent(m.winRate(), 1), QStringLiteral("Wins ÷ (wins + losses)"),
            MetricTone::neutral },
        // An absent factor (no loss yet) reads as a warning too.
        { QStringLiteral("Profit Factor"), fixedOrAbsent(factor, 2), QStringLiteral("Gross wins ÷ gross losses"),
            factor && *factor >= 1.0 ? MetricTone::pos : MetricTone::neg },
        { QStringLiteral("Avg. Win/Loss"), fixedOrAbsent(m.avgWinLossRatio(), 2),
            QStringLiteral("Average winner ÷ average loser"), MetricTone::neutral },
        { QStringLiteral("Sharpe (ann.)"), fixedOrAbsent(sharpe, 2), QStringLiteral("Risk-adjusted return"),
            sharpe && *sharpe > 1.0 ? MetricTone::pos : MetricTone::neutral },
        { QStringLiteral("Max Drawdown"), formatPnL(-drawdown, unit, 2), QStringLiteral("Worst peak-to-trough fall"),
            drawdown > 0 ? MetricTone::neg : MetricTone::neutral },
        { QStringLiteral("Expectancy"), pnlOrAbsent(expectancy, unit, 2), QStringLiteral("Average $ per trade"),
            expectancy && *expectancy < 0 ? MetricTone::neg : MetricTone::pos },
        { QStringLiteral("Current Streak"), streakText(streaks.current),
            QStringLiteral("Best: %1W · Worst: %2L").arg(streaks.longestWin).arg(streaks.longestLoss),
            streakTone(streaks.current) },
    };
}

std::vector<MetricFigure> quantTiles(const JournalMetrics& m, PnLUnit unit)
{
    const std::optional<int> recovery = m.drawdownRecoveryTrades();
    return {
        { QStringLiteral("Sharpe (ann.)"), fixedOrAbsent(m.sharpe(), 2),
            QStringLiteral("Higher = smoother equity for the return."), MetricTone::neutral },
        { QStringLiteral("Sortino (ann.)"), fixedOrAbsent(m.sortino(), 2),
            QStringLiteral("Like Sharpe, only penalizes red days."), MetricTone::neutral },
        { QStringLiteral("Max DD"), formatPnL(-m.maxDrawdown(), unit, 2),
            QStringLiteral("Worst peak-to-trough fall in your equity."), MetricTone::neutral },
        { QStringLiteral("Max DD %"), percentOrAbsent(m.maxDrawdownPct(), 1),
            QStringLiteral("Same drawdown as a fraction of the peak."), MetricTone::neutral },
        { QStringLiteral("Current DD"), formatPnL(-m.currentDrawdown(), unit, 2),
            QStringLiteral("How far you are below your all-time peak."), MetricTone::neutral },
        // " trades" also for one: the tile reads as a count.
        { QStringLiteral("Recovery"), recovery ? QStringLiteral("%1 trades").arg(*recovery) : absent,
            QStringLiteral("Trades to climb back to the prior peak."), MetricTone::neutral },
        { QStringLiteral("Expectancy"), pnlOrAbsent(m.expectancy(), unit, 2),
            QStringLiteral("Average $ per trade — your real edge."), MetricTone::neutral },
        { QStringLiteral("Kelly %"), percentOrAbsent(m.kelly(), 1),
            QStringLiteral("Bet size that maximizes long-run growth. Use ¼ of this in real life."),
            MetricTone::neutral },
    };
}

std::vector<MetricFigure> streakRows(const JournalMetrics& m)
{
    const JournalMetrics::Streaks s = m.streaks();
    return {
        { QStringLiteral("Current"), streakText(s.current), {}, streakTone(s.current) },
        { QStringLiteral("Longest win"), QString::number(s.longestWin), {}, MetricTone::pos },
        { QStringLiteral("Longest loss"), QString::number(s.longestLoss), {}, MetricTone::neg },
    };
}

std::vector<MetricFigure> extremes(const JournalMetrics& m, PnLUnit unit)
{
    return {
        { QStringLiteral("Best trade"), pnlOrAbsent(m.bestTrade(), unit, 2), {}, MetricTone::pos },
        { QStringLiteral("Worst trade"), pnlOrAbsent(m.worstTrade(), unit, 2), {}, MetricTone::neg },
        { QStringLiteral("Best day"), pnlOrAbsent(m.bestDay(), unit, 2), {}, MetricTone::pos },
        { QStringLiteral("Worst day"), pnlOrAbsent(m.worstDay(), unit, 2), {}, MetricTone::neg },
    };
}

std::vector<MetricFigure> simulationCards(
    const std::optional<MonteCarloEngine::Result>& result, bool ruinTracked, PnLUnit unit)
{
    const MonteCarloEngine::Result::Bands* last = result && !result->bands.empty() ? &result->bands.back() : nullptr;
    const std::optional<double> profit = result ? std::optional<double>(result->profitProbability) : std::nullopt;
    auto finalAt = [&](double MonteCarloEngine::Result::Bands::*field) {
        return last ? formatPnL(last->*field, unit, 0) : absent;
    };
    std::vector<MetricFigure> cards {
        { QStringLiteral("P(profit)"), percentOrAbsent(profit, 0), QStringLiteral("Chance you finish above the start."),
            profit && *profit >= 0.5 ? MetricTone::pos : MetricTone::neg },
        { QStringLiteral("Median final"), finalAt(&MonteCarloEngine::Result::Bands::p50),
            QStringLiteral("50% of paths land above this."), MetricTone::neutral },
        { QStringLiteral("5%-ile final"), finalAt(&MonteCarloEngine::Result::Bands::p05),
            QStringLiteral("Worst 5% bottom — your downside."), MetricTone::neg },
    };
    if (ruinTracked) {
        const std::optional<double> ruin = result ? result->ruinProbability : std::nullopt;
        cards.push_back(
            { QStringLiteral("P(ruin)"), percentOrAbsent(ruin, 1), QStringLiteral("Paths that hit the ruin line."),
                ruin && *ruin > 0.05 ? MetricTone::neg : MetricTone::pos });
    } else {
        cards.push_back({ QStringLiteral("95%-ile final"), finalAt(&MonteCarloEngine::Result::Bands::p95),
            QStringLiteral("Best 5% top — your blue-sky."), MetricTone::pos });
    }
    return cards;
}

MonteCarloEngine::Config simulationConfig(const SimulationSettings& s, std::vector<double> trades)
{
    MonteCarloEngine::Config config;
    config.trades = std::move(trades);
    config.horizon = int64_t(s.horizon);
    config.paths = int64_t(s.paths);
    config.startingEquity = s.startingEquity;
    // The control is an offset below the start; the engine takes the absolute level.
    if (s.ruinEnabled) config.ruinThreshold = s.startingEquity + s.ruinOffset;
    config.seed = s.seed;
    return config;
}

} // namespace JournalFigures

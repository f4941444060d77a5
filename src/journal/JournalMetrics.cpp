#include "journal/JournalMetrics.h"

#include "journal/LocalCalendar.h"

#include <algorithm>
#include <cmath>

namespace {

double sum(const std::vector<double>& values)
{
    double total = 0;
    for (double v : values)
        total += v;
    return total;
}

} // namespace

JournalMetrics::JournalMetrics(
    const QList<ClipEntry>& clips, PnLUnit unit, const QList<ClipTrade>& withoutClip, const JournalFilter& filter)
{
    const auto add = [&](double date, double signedPnL, TradeOutcome outcome, bool hasPnL, PnLUnit itsUnit) {
        if (outcome == TradeOutcome::unset) return;
        const Item item { date, signedPnL, outcome };
        outcomeTagged.push_back(item);
        if (hasPnL && itsUnit == unit) withPnL.push_back(item);
    };
    for (const ClipEntry& entry : clips) {
        const ClipMeta& meta = entry.meta;
        if (meta.tagOrigin == TagOrigin::imported && !meta.trades.isEmpty()) {
            for (const ClipTrade& t : meta.trades)
                if (filter.accepts(t, &entry)) add(t.exitTime, t.signedPnL(), t.outcome, t.pnl.has_value(), t.unit);
        } else if (filter.accepts(entry)) {
            add(entry.date(), meta.signedPnL(), meta.outcome, meta.pnl.has_value(), meta.unit);
        }
    }
    for (const ClipTrade& t : withoutClip)
        if (filter.accepts(t, nullptr)) add(t.exitTime, t.signedPnL(), t.outcome, t.pnl.has_value(), t.unit);
    withPnLByTime = withPnL;
    std::stable_sort(
        withPnLByTime.begin(), withPnLByTime.end(), [](const Item& a, const Item& b) { return a.date < b.date; });
}

std::vector<double> JournalMetrics::tradePnL() const
{
    std::vector<double> values;
    values.reserve(withPnLByTime.size());
    for (const Item& item : withPnLByTime)
        values.push_back(item.pnl);
    return values;
}

std::vector<double> JournalMetrics::equityCurve() const
{
    std::vector<double> curve;
    curve.reserve(withPnLByTime.size() + 1);
    double running = 0.0;
    curve.push_back(running);
    for (const Item& item : withPnLByTime) {
        running += item.pnl;
        curve.push_back(running);
    }
    return curve;
}

std::vector<JournalMetrics::DatedValue> JournalMetrics::cumulative() const
{
    std::vector<DatedValue> points;
    points.reserve(withPnLByTime.size());
    double running = 0.0;
    for (const Item& item : withPnLByTime) {
        running += item.pnl;
        points.push_back({ item.date, running });
    }
    return points;
}

std::map<QDate, JournalMetrics::DayTotal> JournalMetrics::dayTotals() const
{
    std::map<QDate, DayTotal> byDay;
    LocalCalendar calendar;
    for (const Item& item : withPnL) {
        const LocalCalendar::Day day = calendar.dayOf(item.date);
        auto [at, inserted] = byDay.try_emplace(day.date, DayTotal { day.start, 0.0 });
        at->second.sum += item.pnl;
    }
    return byDay;
}

std::map<QDate, double> JournalMetrics::dailyPnL() const
{
    std::map<QDate, double> byDay;
    for (const auto& [day, total] : dayTotals())
        byDay.emplace_hint(byDay.end(), day, total.sum);
    return byDay;
}

std::map<QDate, int> JournalMetrics::dailyCount() const
{
    std::map<QDate, int> byDay;
    LocalCalendar calendar;
    for (const Item& item : outcomeTagged)
        ++byDay[calendar.dayOf(item.date).date];
    return byDay;
}

std::vector<JournalMetrics::DatedValue> JournalMetrics::daily() const
{
    std::vector<DatedValue> points;
    for (const auto& [day, total] : dayTotals())
        points.push_back({ total.start, total.sum });
    return points;
}

std::vector<double> JournalMetrics::dailyReturns() const
{
    std::vector<double> values;
    for (const auto& [day, total] : dayTotals())
        values.push_back(total.sum);
    return values;
}

double JournalMetrics::netPnL() const
{
    double total = 0;
    for (const Item& item : withPnL)
        total += item.pnl;
    return total;
}

std::optional<double> JournalMetrics::winRate() const
{
    int wins = 0;
    int losses = 0;
    for (const Item& item : outcomeTagged) {
        if (item.outcome == TradeOutcome::win) ++wins;
        if (item.outcome == TradeOutcome::loss) ++losses;
    }
    if (wins + losses == 0) return std::nullopt;
    return static_cast<double>(wins) / static_cast<double>(wins + losses);
}

std::optional<double> JournalMetrics::profitFactor() const
{
    double grossWins = 0;
    double grossLosses = 0;
    bool anyLoss = false;
    for (const Item& item : withPnL) {
        if (item.outcome == TradeOutcome::win) grossWins += std::fabs(item.pnl);
        if (item.outcome == TradeOutcome::loss) {
            grossLosses += std::fabs(item.pnl);
            anyLoss = true;
        }
    }
    // No losses gives no figure rather than infinity.
    if (!anyLoss || !(grossLosses > 0)) return std::nullopt;
    return grossWins / grossLosses;
}

std::optional<double> JournalMetrics::avgWinLossRatio() const
{
    double winSum = 0;
    double lossSum = 0;
    int wins = 0;
    int losses = 0;
    for (const Item& item : withPnL) {
        if (item.outcome == TradeOutcome::win) {
            winSum += std::fabs(item.pnl);
            ++wins;
        }
        if (item.outcome == TradeOutcome::loss) {
            lossSum += std::fabs(item.pnl);
            ++losses;
        }
    }
    if (wins == 0 || losses == 0) return std::nullopt;
    const double meanLoss = lossSum / losses;
    if (!(meanLoss > 0)) return std::nullopt;
    return (winSum / wins) / meanLoss;
}

std::optional<double> JournalMetrics::expectancy() const
{
    const std::vector<double> trades = tradePnL();
    if (trades.empty()) return std::nullopt;
    return sum(trades) / static_cast<double>(trades.size());
}

std::optional<JournalMetrics::MeanStd> JournalMetrics::meanStd(const std::vector<double>& values)
{
    if (values.size() < 2) return std::nullopt;
    const double n = static_cast<double>(values.size());
    const double mean = sum(values) / n;
    double squares = 0;
    for (double v : values)
        squares += (v - mean) * (v - mean);
    return MeanStd { mean, std::sqrt(squares / n) };
}

std::optional<double> JournalMetrics::sharpe() const
{
    const auto stats = meanStd(dailyReturns());
    if (!stats || !(stats->std > 0)) return std::nullopt;
    return stats->mean / stats->std * annualisation;
}

std::optional<double> JournalMetrics::sortino() const
{
    const std::vector<double> returns = dailyReturns();
    if (returns.size() < 2) return std::nullopt;
    if (std::none_of(returns.begin(), returns.end(), [](double r) { return r < 0; })) return std::nullopt;
    const double n = static_cast<double>(returns.size());
    const double mean = sum(returns) / n;
    // Divided by all days, not by the red ones.
    double downside = 0;
    for (double r : returns) {
        if (r < 0) downside += r * r;
    }
    downside /= n;
    if (!(downside > 0)) return std::nullopt;
    return mean / std::sqrt(downside) * annualisation;
}

double JournalMetrics::maxDrawdown() const
{
    const std::vector<double> curve = equityCurve();
    double peak = curve.front();
    double worst = 0;
    for (double value : curve) {
        peak = std::max(peak, value);
        worst = std::max(worst, peak - value);
    }
    return worst;
}

std::optional<double> JournalMetrics::maxDrawdownPct() const
{
    const std::vector<double> curve = equityCurve();
    double peak = curve.front();
    double worst = 0;
    double peakAtWorst = 0;
    for (double value : curve) {
        peak = std::max(peak, value);
        // Strictly greater: of equal drawdowns the first one counts.
        if (peak - value > worst) {
            worst = peak - value;
            peakAtWorst = peak;
        }
    }
    // A journal that never rose above 0 has no percentage, however deep it fell.
    if (!(peakAtWorst > 0)) return std::nullopt;
    return worst / peakAtWorst;
}

double JournalMetrics::currentDrawdown() const
{
    const std::vector<double> curve = equityCurve();
    return *std::max_element(curve.begin(), curve.end()) - curve.back();
}

std::optional<int> JournalMetrics::drawdownRecoveryTrades() const
{
    const std::vector<double> c = equityCurve();
    const size_t n = c.size();
    if (n < 2) return std::nullopt;
    double peak = c[0];
    double worst = 0;
    bool inEpisode = false;
    size_t episodeStart = 0;
    size_t worstStart = 0;
    size_t worstIndex = 0;
    for (size_t i = 0; i < n; ++i) {
        if (c[i] > peak) {
            // Only a new high ends an episode; coming back exactly to the old peak does not.
            peak = c[i];
            inEpisode = false;
        } else if (c[i] < peak) {
            if (!inEpisode) {
                episodeStart = i;
                inEpisode = true;
            }
            if (peak - c[i] > worst) {
                worst = peak - c[i];
                worstStart = episodeStart;
                worstIndex = i;
            }
        }
    }
    if (!(worst > 0)) return std::nullopt;
    // The last value before the worst episode began.
    const double target = c[worstStart > 0 ? worstStart - 1 : 0];
    for (size_t j = worstIndex; j < n; ++j) {
        if (c[j] >= target) return static_cast<int>(j - worstStart);
    }
    return std::nullopt;
}

std::optional<double> JournalMetrics::kelly() const
{
    const auto w = winRate();
    const auto r = avgWinLossRatio();
    if (!w || !r || !(*r > 0)) return std::nullopt;
    return *w - (1 - *w) / *r;
}

JournalMetrics::Streaks JournalMetrics::streaks() const
{
    std::vector<Item> byTime = outcomeTagged;
    std::stable_sort(byTime.begin(), byTime.end(), [](const Item& a, const Item& b) { return a.date < b.date; });
    Streaks s;
    for (const Item& item : byTime) {
        if (item.outcome == TradeOutcome::win) {
            s.current = s.current < 0 ? 1 : s.current + 1;
            s.longestWin = std::max(s.longestWin, s.current);
        } else if (item.outcome == TradeOutcome::loss) {
            s.current = s.current > 0 ? -1 : s.current - 1;
            s.longestLoss = std::max(s.longestLoss, -s.current);
        }
        // A breakeven neither continues nor breaks a streak.
    }
    return s;
}

double JournalMetrics::consistencyScore() const
{
    const size_t n = withPnL.size();
    if (n < 2) return 0.5;
    double total = 0;
    for (const Item& item : withPnL)
        total += item.pnl;
    const double mean = total / static_cast<double>(n);
    if (!(std::fabs(mean) > 0.0001)) return 0.3;
    double squares = 0;
    for (const Item& item : withPnL)
        squares += (item.pnl - mean) * (item.pnl - mean);
    const double std = std::sqrt(squares / static_cast<double>(n));
    const double score = 1.0 - 0.4 * std / std::fabs(mean);
    return std::clamp(score, 0.0, 1.0);
}

std::optional<int> JournalMetrics::compassScore() const
{
    if (outcomeTagged.size() < 5) return std::nullopt;
    const auto w = winRate();
    const auto pf = profitFactor();
    const double winPart = w ? 100 * *w * 0.30 : 0;
    // A profit factor of 3 earns the whole part, thirty tagged clips the whole sample part.
    const double profitPart = pf ? 100 * std::min(*pf / 3.0, 1.0) * 0.30 : 0;
    const double samplePart = 100 * std::min(static_cast<double>(outcomeTagged.size()) / 30.0, 1.0) * 0.15;
    const double consistencyPart = 100 * consistencyScore() * 0.25;
    // std::round takes halves away from zero.
    return static_cast<int>(std::round(winPart + profitPart + samplePart + consistencyPart));
}

std::optional<double> JournalMetrics::bestTrade() const
{
    if (withPnL.empty()) return std::nullopt;
    const std::vector<double> trades = tradePnL();
    return *std::max_element(trades.begin(), trades.end());
}

std::optional<double> JournalMetrics::worstTrade() const
{
    if (withPnL.empty()) return std::nullopt;
    const std::vector<double> trades = tradePnL();
    return *std::min_element(trades.begin(), trades.end());
}

std::optional<double> JournalMetrics::bestDay() const
{
    const std::vector<double> days = dailyReturns();
    if (days.empty()) return std::nullopt;
    return *std::max_element(days.begin(), days.end());
}

std::optional<double> JournalMetrics::worstDay() const
{
    const std::vector<double> days = dailyReturns();
    if (days.empty()) return std::nullopt;
    return *std::min_element(days.begin(), days.end());
}

#pragma once

#include "journal/ClipEntry.h"
#include "journal/ClipTrade.h"
#include "journal/JournalFilter.h"
#include "journal/PnLUnit.h"

#include <QDate>
#include <QList>

#include <map>
#include <optional>
#include <vector>

// Every figure of the journal, computed from a snapshot of the clips and the unit being viewed.
// Nothing is cached beyond the snapshot: the store makes a new one on each read, so a change of the
// clips, the unit or the system time zone shows at once.
//
// Two populations underlie everything. The outcome-tagged clips (any unit, with or without an
// amount) count in win rate, streaks, the daily count and the compass sample size. The clips with an
// amount in the viewed unit count in every P&L figure; other units are left out, never converted.
//
// A clip whose tag comes from the broker's trades counts as those trades, each at its exit time, and
// the trades without a clip count too: every imported trade is in the statistics once.
//
// Pure computation over the snapshot; no event loop, safe to use from any one thread at a time.
class JournalMetrics {
public:
    struct DatedValue {
        double date; // seconds since 2001-01-01 00:00:00 UTC
        double value;
    };
    struct Streaks {
        int current = 0; // positive for wins, negative for losses
        int longestWin = 0;
        int longestLoss = 0;
        friend bool operator==(const Streaks&, const Streaks&) = default;
    };
    struct MeanStd {
        double mean;
        double std;
    };

    // The square root of 252 trading days, the annualisation of per-day Sharpe and Sortino.
    static constexpr double annualisation = 15.874507866387544;

    JournalMetrics(const QList<ClipEntry>& clips, PnLUnit unit, const QList<ClipTrade>& withoutClip = {},
        const JournalFilter& filter = {});

    // Series. "Time order" is a stable sort by the entry's date, oldest first.
    std::vector<double> tradePnL() const; // signed P&L in time order
    std::vector<double> equityCurve() const; // 0, then the running sum of tradePnL
    std::vector<DatedValue> cumulative() const; // each trade's date and the running sum up to it
    std::map<QDate, double> dailyPnL() const; // keyed by local calendar day
    std::map<QDate, int> dailyCount() const; // outcome-tagged clips per local day, all units
    std::vector<DatedValue> daily() const; // per day with trades, oldest first; date = start of day
    std::vector<double> dailyReturns() const;

    // Scalars. Absent where there is nothing to compute from, as the screens show "—".
    double netPnL() const;
    std::optional<double> winRate() const;
    std::optional<double> profitFactor() const;
    std::optional<double> avgWinLossRatio() const;
    std::optional<double> expectancy() const;
    std::optional<double> sharpe() const;
    std::optional<double> sortino() const;
    double maxDrawdown() const;
    std::optional<double> maxDrawdownPct() const;
    double currentDrawdown() const; // the all-time peak minus the last equity, never negative
    std::optional<int> drawdownRecoveryTrades() const;
    std::optional<double> kelly() const;
    Streaks streaks() const;
    double consistencyScore() const;
    std::optional<int> compassScore() const;

    // The extremes of the Stats screen.
    std::optional<double> bestTrade() const;
    std::optional<double> worstTrade() const;
    std::optional<double> bestDay() const;
    std::optional<double> worstDay() const;

    int tradeCount() const { return static_cast<int>(withPnL.size()); }
    int taggedCount() const { return static_cast<int>(outcomeTagged.size()); }

    // Population mean and deviation (divisor n); absent below two values.
    static std::optional<MeanStd> meanStd(const std::vector<double>& values);

private:
    struct Item {
        double date;
        double pnl; // signed
        TradeOutcome outcome;
    };

    struct DayTotal {
        double start; // the day's first instant
        double sum;
    };
    // The signed P&L of the clips with an amount, summed by local day.
    std::map<QDate, DayTotal> dayTotals() const;

    std::vector<Item> outcomeTagged; // clips order, newest first
    std::vector<Item> withPnL; // clips order
    std::vector<Item> withPnLByTime; // oldest first, stable
};

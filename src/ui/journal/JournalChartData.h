#pragma once

#include "journal/MonteCarloEngine.h"

#include <QDate>

#include <array>
#include <map>
#include <optional>
#include <span>
#include <vector>

// The data behind the journal's drawings: calendar rows, histogram bins and the vertical ranges of
// the charts. Pure functions, so the charts only map what is computed here onto their pixels.
namespace JournalChartData {

// Six rows of seven days; weeks always start on Sunday, whatever the locale says, and every month
// shows six rows. Days outside the month are absent.
using Week = std::array<std::optional<QDate>, 7>;
std::array<Week, 6> monthWeeks(const QDate& monthAnchor);

// The first day of the date's month.
QDate startOfMonth(const QDate& date);
// "Nov 2026", in English whatever the locale.
QString monthYearLabel(const QDate& date);

// The days of a week row that have an amount, and their sum.
struct WeekTotal {
    double total = 0;
    int days = 0;
};
WeekTotal weekTotal(const Week& week, const std::map<QDate, double>& pnlByDay);

struct Bin {
    double low;
    double high;
    int count;
    friend bool operator==(const Bin&, const Bin&) = default;
};
constexpr int histogramBinCount = 16;
// Equal-width bins over the values padded by 5% each side; empty for fewer than two distinct values.
std::vector<Bin> histogram(std::span<const double> values, int count = histogramBinCount);

// A vertical range that always holds zero, with a span never below a hair so that a flat series
// still maps somewhere.
struct ValueRange {
    double lo = 0;
    double hi = 0;
    double span = minimumSpan;
    static constexpr double minimumSpan = 0.0001;
    // The y of a value in a drawing `height` high, 0 at the top.
    double y(double value, double height) const { return height - height * (value - lo) / span; }
};
ValueRange zeroInclusiveRange(double smallest, double greatest);
// Over a series of values; absent when there are none.
std::optional<ValueRange> seriesRange(std::span<const double> values);
// The fan's range: its outer band, and zero.
ValueRange fanRange(const MonteCarloEngine::Result& result);

// The x of point i of n in a drawing `width` wide, spaced by index; a single point stands in the
// middle.
double indexX(size_t i, size_t n, double width);

// A long series thinned for a drawing of `columns` columns: the first and the last point, and in
// each column's run of points its lowest and its highest, in their order, so that the line reaches
// every height the whole series would. `at` is the point's index position, 0 at the first and 1 at
// the last point (0.5 for a single point). A series of no more than two points a column is kept
// whole.
struct PlotPoint {
    double at;
    double value;
};
std::vector<PlotPoint> thinnedSeries(std::span<const double> values, int columns);

} // namespace JournalChartData

#include "ui/journal/JournalChartData.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace JournalChartData {

std::array<Week, 6> monthWeeks(const QDate& monthAnchor)
{
    std::array<Week, 6> rows {};
    const QDate first = startOfMonth(monthAnchor);
    if (!first.isValid()) return rows;
    // Qt numbers Monday 1 to Sunday 7; Sunday opens the row here.
    const int leading = first.dayOfWeek() % 7;
    for (int day = 0; day < first.daysInMonth(); ++day) {
        const int cell = leading + day;
        rows[size_t(cell / 7)][size_t(cell % 7)] = first.addDays(day);
    }
    return rows;
}

QDate startOfMonth(const QDate& date)
{
    const QDate first(date.year(), date.month(), 1);
    return first.isValid() ? first : date;
}

QString monthYearLabel(const QDate& date)
{
    return QLocale::c().toString(date, QStringLiteral("MMM yyyy"));
}

WeekTotal weekTotal(const Week& week, const std::map<QDate, double>& pnlByDay)
{
    WeekTotal sum;
    for (const std::optional<QDate>& day : week) {
        if (!day) continue;
        if (auto found = pnlByDay.find(*day); found != pnlByDay.end()) {
            sum.total += found->second;
            ++sum.days;
        }
    }
    return sum;
}

std::vector<Bin> histogram(std::span<const double> values, int count)
{
    if (values.size() < 2 || count < 1) return {};
    const auto [smallest, greatest] = std::minmax_element(values.begin(), values.end());
    if (!(*smallest < *greatest)) return {};
    const double pad = (*greatest - *smallest) * 0.05;
    const double lo = *smallest - pad;
    const double hi = *greatest + pad;
    const double width = (hi - lo) / count;
    std::vector<Bin> bins(size_t(count), Bin { 0, 0, 0 });
    for (int i = 0; i < count; ++i)
        bins[size_t(i)] = { lo + width * i, lo + width * (i + 1), 0 };
    for (double value : values) {
        // The pad keeps the extremes inside; the clamp guards against rounding.
        const double at = std::trunc((value - lo) / width);
        const int index = std::isfinite(at) ? int(std::clamp(at, 0.0, double(count - 1))) : 0;
        ++bins[size_t(index)].count;
    }
    return bins;
}

ValueRange zeroInclusiveRange(double smallest, double greatest)
{
    ValueRange range;
    range.lo = std::min(smallest, 0.0);
    range.hi = std::max(greatest, 0.0);
    range.span = std::max(range.hi - range.lo, ValueRange::minimumSpan);
    return range;
}

std::optional<ValueRange> seriesRange(std::span<const double> values)
{
    if (values.empty()) return std::nullopt;
    const auto [smallest, greatest] = std::minmax_element(values.begin(), values.end());
    return zeroInclusiveRange(*smallest, *greatest);
}

ValueRange fanRange(const MonteCarloEngine::Result& result)
{
    return zeroInclusiveRange(result.yRange.min, result.yRange.max);
}

double indexX(size_t i, size_t n, double width)
{
    if (n < 2) return width / 2;
    return width * double(i) / double(n - 1);
}

std::vector<PlotPoint> thinnedSeries(std::span<const double> values, int columns)
{
    const size_t n = values.size();
    std::vector<PlotPoint> points;
    auto at = [n](size_t i) { return n < 2 ? 0.5 : double(i) / double(n - 1); };
    auto keep = [&](size_t i) {
        if (points.empty() || points.back().at < at(i)) points.push_back({ at(i), values[i] });
    };
    if (columns < 1 || n <= size_t(columns) * 2) {
        for (size_t i = 0; i < n; ++i)
            keep(i);
        return points;
    }
    points.reserve(size_t(columns) * 2 + 2);
    keep(0);
    for (size_t column = 0; column < size_t(columns); ++column) {
        const size_t begin = n * column / size_t(columns);
        const size_t end = n * (column + 1) / size_t(columns);
        if (begin == end) continue;
        size_t low = begin;
        size_t high = begin;
        for (size_t i = begin; i < end; ++i) {
            if (values[i] < values[low]) low = i;
            if (values[i] > values[high]) high = i;
        }
        keep(std::min(low, high));
        keep(std::max(low, high));
    }
    keep(n - 1);
    return points;
}

} // namespace JournalChartData

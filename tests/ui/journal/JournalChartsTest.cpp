#include "ui/journal/JournalCharts.h"

#include "journal/JournalMetrics.h"
#include "support/EventLoop.h"
#include "ui/journal/CalendarGrid.h"
#include "ui/journal/JournalChartData.h"
#include "ui/journal/JournalFigures.h"
#include "ui/journal/SimulationRunner.h"

#include <QImage>

#include <gtest/gtest.h>

using namespace JournalChartData;

namespace {

int filledCells(const std::array<Week, 6>& weeks)
{
    int n = 0;
    for (const Week& week : weeks)
        for (const std::optional<QDate>& day : week)
            n += day.has_value();
    return n;
}

QImage paint(QWidget& widget, QSize size)
{
    widget.resize(size);
    return widget.grab().toImage();
}

} // namespace

TEST(JournalChartData, MonthWeeksStartOnSundayWhateverTheFirstWeekday)
{
    // Nov 2026 starts on a Sunday, Jun a Monday, Sep a Tuesday, Apr a Wednesday, Jan a Thursday,
    // May a Friday, Aug a Saturday.
    const std::pair<int, int> months[] = { { 11, 0 }, { 6, 1 }, { 9, 2 }, { 4, 3 }, { 1, 4 }, { 5, 5 }, { 8, 6 } };
    for (const auto& [month, column] : months) {
        // Any day of the month anchors it.
        const auto weeks = monthWeeks(QDate(2026, month, 17));
        SCOPED_TRACE(month);
        EXPECT_EQ(weeks[0][size_t(column)], QDate(2026, month, 1));
        for (int blank = 0; blank < column; ++blank)
            EXPECT_FALSE(weeks[0][size_t(blank)].has_value());
        const QDate first(2026, month, 1);
        EXPECT_EQ(filledCells(weeks), first.daysInMonth());
        // Consecutive days, each in its weekday's column, Sunday first.
        for (const Week& week : weeks)
            for (size_t c = 0; c < 7; ++c)
                if (week[c]) {
                    EXPECT_EQ(week[c]->dayOfWeek() % 7, int(c));
                }
    }
    // A 31-day month beginning on a Saturday fills all six rows.
    EXPECT_TRUE(monthWeeks(QDate(2026, 8, 1))[5][1].has_value());
    // February of a leap year: 29 days from a Thursday, ending in the fifth row.
    const auto leap = monthWeeks(QDate(2024, 2, 29));
    EXPECT_EQ(filledCells(leap), 29);
    EXPECT_EQ(leap[4][4], QDate(2024, 2, 29));
    EXPECT_FALSE(leap[4][5].has_value());
    // February of a common year from a Sunday leaves two blank rows.
    const auto common = monthWeeks(QDate(2015, 2, 1));
    EXPECT_EQ(common[3][6], QDate(2015, 2, 28));
    EXPECT_EQ(filledCells({ common[4], common[5], {}, {}, {}, {} }), 0);
}

TEST(JournalChartData, HistogramBinsPadTheRangeAndCountEveryValue)
{
    EXPECT_TRUE(histogram({}).empty());
    const double one[] = { 4 };
    EXPECT_TRUE(histogram(one).empty());
    const double equal[] = { 2.5, 2.5, 2.5 };
    EXPECT_TRUE(histogram(equal).empty());

    const double values[] = { -10, 0, 0, 30, 10 };
    const std::vector<Bin> bins = histogram(values);
    ASSERT_EQ(bins.size(), size_t(histogramBinCount));
    // Padded by 5% of the 40 wide range each side: -12 to 32 in bins of 2.75.
    EXPECT_DOUBLE_EQ(bins.front().low, -12);
    EXPECT_DOUBLE_EQ(bins.back().high, 32);
    EXPECT_DOUBLE_EQ(bins[1].low, bins[0].high);
    EXPECT_EQ(bins.front().count, 1);
    EXPECT_EQ(bins.back().count, 1);
    EXPECT_EQ(bins[4].count, 2); // 0 falls at 12 / 2.75 = 4.36
    int total = 0;
    for (const Bin& bin : bins)
        total += bin.count;
    EXPECT_EQ(total, 5);
}

TEST(JournalChartData, RangesKeepZeroInViewAndNeverCollapse)
{
    const double positive[] = { 5, 20 };
    const ValueRange up = *seriesRange(positive);
    EXPECT_EQ(up.lo, 0);
    EXPECT_DOUBLE_EQ(up.y(0, 100), 100); // the baseline is the bottom edge
    const double negative[] = { -3, -1 };
    EXPECT_DOUBLE_EQ(seriesRange(negative)->y(0, 100), 0); // and the top edge
    const double flat[] = { 0, 0 };
    EXPECT_DOUBLE_EQ(seriesRange(flat)->span, ValueRange::minimumSpan);
    EXPECT_FALSE(seriesRange({}).has_value());
}

TEST(JournalChartData, ALongSeriesIsThinnedKeepingItsExtremesInOrder)
{
    std::vector<double> values(10'000);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = double((i * 7919) % 1000);
    values[4321] = -500;
    values[8765] = 5000;
    const std::vector<PlotPoint> points = thinnedSeries(values, 100);
    EXPECT_LE(points.size(), 202U);
    EXPECT_EQ(points.front().at, 0);
    EXPECT_EQ(points.back().at, 1);
    EXPECT_EQ(points.back().value, values.back());
    for (size_t i = 1; i < points.size(); ++i)
        ASSERT_LT(points[i - 1].at, points[i].at);
    auto has = [&points](double value) {
        return std::any_of(points.begin(), points.end(), [value](const PlotPoint& p) { return p.value == value; });
    };
    EXPECT_TRUE(has(-500));
    EXPECT_TRUE(has(5000));
    // A short series is kept whole.
    const double few[] = { 1, 2, 3 };
    EXPECT_EQ(thinnedSeries(few, 100).size(), 3U);
}

TEST(JournalCharts, LineChartFillsBetweenTheCurveAndTheBaseline)
{
    PnLLineChart chart;
    chart.setPoints({ { 0, 10 }, { 1, 20 }, { 2, 40 } });
    const QImage image = paint(chart, { 200, 100 });
    const QColor background = image.pixelColor(100, 5); // above the curve
    const QColor fill = image.pixelColor(150, 90); // under it, above the zero line at the bottom
    EXPECT_GT(fill.blue() - fill.red(), background.blue() - background.red() + 10);

    PnLLineChart empty;
    empty.setPoints({});
    EXPECT_FALSE(empty.range().has_value());
}

TEST(JournalCharts, HistogramColoursBarsBySideOfZero)
{
    ReturnsHistogram chart;
    chart.setValues({ -50, -50, -50, 50, 50, 50 }, PnLUnit::dollars);
    const QImage image = paint(chart, { 320, 200 });
    const QRectF plot = chart.plotRect();
    const QColor loss = image.pixelColor(int(chart.xOf(-50)), int(plot.bottom()) - 10);
    const QColor win = image.pixelColor(int(chart.xOf(50)), int(plot.bottom()) - 10);
    EXPECT_GT(loss.red(), loss.blue() + 40) << loss.name().toStdString();
    EXPECT_GT(win.green(), win.red() + 20) << win.name().toStdString();

    chart.setValues({ 3, 3 }, PnLUnit::dollars);
    EXPECT_TRUE(chart.bins().empty());
}

TEST(JournalCharts, FanDrawsNothingWithoutAResultAndItsMedianWithOne)
{
    MonteCarloFanChart fan;
    auto accentPixels = [&fan] {
        const QImage image = paint(fan, { 300, 240 });
        int n = 0;
        for (int y = 0; y < image.height(); y += 2)
            for (int x = 0; x < image.width(); x += 2) {
                const QColor c = image.pixelColor(x, y);
                n += c.blue() > c.red() + 80;
            }
        return n;
    };
    fan.setResult(std::nullopt, PnLUnit::dollars);
    EXPECT_EQ(accentPixels(), 0);
    // One trade repeated: every path climbs in a straight line, the median from corner to corner.
    MonteCarloEngine::Config config;
    config.trades = { 1 };
    config.horizon = 10;
    config.paths = 5;
    config.seed = 1;
    fan.setResult(MonteCarloEngine::simulate(config), PnLUnit::dollars);
    EXPECT_GT(accentPixels(), 20);
}

TEST(JournalCharts, CalendarCellTintsByTheDaysAmount)
{
    CalendarCell win;
    win.setData(QDate(2026, 11, 3), 120, 2, PnLUnit::dollars);
    CalendarCell loss;
    loss.setData(QDate(2026, 11, 4), -80, 1, PnLUnit::dollars);
    const QColor winTile = paint(win, { 80, CalendarCell::cellHeight }).pixelColor(6, 40);
    const QColor lossTile = paint(loss, { 80, CalendarCell::cellHeight }).pixelColor(6, 40);
    EXPECT_GT(winTile.green() - winTile.red(), lossTile.green() - lossTile.red() + 10);
    EXPECT_EQ(win.accessibleDescription(), QStringLiteral("$120, 2 trades"));
    EXPECT_EQ(loss.accessibleDescription(), QStringLiteral("-$80, 1 trade"));
}

TEST(JournalFigures, EmptyJournalShowsAbsentValuesInTheirTones)
{
    const JournalMetrics empty({}, PnLUnit::dollars);
    const std::vector<MetricFigure> cards = JournalFigures::overviewCards(empty, PnLUnit::dollars);
    auto find = [&cards](const char* label) {
        for (const MetricFigure& f : cards)
            if (f.label == QLatin1String(label)) return f;
        return MetricFigure {};
    };
    EXPECT_EQ(find("Net P&L").value, QStringLiteral("$0.00"));
    EXPECT_EQ(find("Net P&L").tone, MetricTone::neutral);
    EXPECT_EQ(find("Win Rate").value, JournalFigures::absent);
    EXPECT_EQ(find("Profit Factor").tone, MetricTone::neg);
    EXPECT_EQ(find("Max Drawdown").value, QStringLiteral("$0.00"));
    EXPECT_EQ(find("Expectancy").tone, MetricTone::pos);

    const std::vector<MetricFigure> simulated = JournalFigures::simulationCards(std::nullopt, true, PnLUnit::R);
    ASSERT_EQ(simulated.size(), 4U);
    EXPECT_EQ(simulated[3].label, QStringLiteral("P(ruin)"));
    for (const MetricFigure& f : simulated)
        EXPECT_EQ(f.value, JournalFigures::absent);
}

TEST(SimulationRunner, ABurstOfRequestsShowsOnlyTheLatest)
{
    SimulationRunner runner;
    std::vector<std::optional<MonteCarloEngine::Result>> shown;
    QObject::connect(&runner, &SimulationRunner::finished,
        [&shown](const std::optional<MonteCarloEngine::Result>& r) { shown.push_back(r); });
    MonteCarloEngine::Config config;
    config.trades = { 3, -2, 5, -1, 4 };
    config.horizon = 200;
    config.paths = 4000;
    for (uint64_t seed = 1; seed <= 5; ++seed) {
        config.seed = seed;
        runner.run(config);
    }
    ASSERT_TRUE(spinUntil([&] { return !shown.empty() && !runner.isRunning(); }));
    spinFor(50);
    ASSERT_EQ(shown.size(), 1U);
    ASSERT_TRUE(shown[0].has_value());
    EXPECT_EQ(shown[0]->finalEquities, MonteCarloEngine::simulate(config)->finalEquities);
}

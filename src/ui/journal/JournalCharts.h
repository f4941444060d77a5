#pragma once

#include "journal/JournalMetrics.h"
#include "journal/MonteCarloEngine.h"
#include "journal/PnLUnit.h"
#include "ui/journal/JournalChartData.h"

#include <QWidget>

#include <optional>
#include <vector>

// The journal's drawings, each a pure function of what it was last given, painted by hand.

// An equity or daily series: points spaced evenly by index, zero always in view, the area between
// the curve and the zero line filled.
class PnLLineChart : public QWidget {
public:
    explicit PnLLineChart(QWidget* parent = nullptr);

    void setPoints(std::vector<JournalMetrics::DatedValue> points);
    // Where the series is drawn, in widget coordinates.
    QRectF plotRect() const;
    std::optional<JournalChartData::ValueRange> range() const { return valueRange; }

    QSize sizeHint() const override { return { 320, 180 }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<double> values;
    std::optional<JournalChartData::ValueRange> valueRange;
};

// Per-trade results in sixteen bins, green from zero up and red below, with the mean marked.
class ReturnsHistogram : public QWidget {
public:
    explicit ReturnsHistogram(QWidget* parent = nullptr);

    void setValues(std::vector<double> values, PnLUnit unit);
    const std::vector<JournalChartData::Bin>& bins() const { return binList; }
    QRectF plotRect() const;
    // The x of an amount on the bins' scale.
    double xOf(double value) const;

    QSize sizeHint() const override { return { 320, 200 }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<double> values;
    std::vector<JournalChartData::Bin> binList;
    PnLUnit unit = PnLUnit::dollars;
};

// The simulation's percentile bands over the trades ahead: the 5-95 and 25-75 bands and the median.
class MonteCarloFanChart : public QWidget {
public:
    explicit MonteCarloFanChart(QWidget* parent = nullptr);

    void setResult(std::optional<MonteCarloEngine::Result> result, PnLUnit unit);
    const std::optional<MonteCarloEngine::Result>& result() const { return shown; }
    QRectF plotRect() const;

    QSize sizeHint() const override { return { 320, 240 }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<MonteCarloEngine::Result> shown;
    PnLUnit unit = PnLUnit::dollars;
};

// The compass score as a ring gauge: three reference rings and an arc sweeping score / 100 of the
// circle, the score in the middle (a dash without one).
class CompassRadial : public QWidget {
public:
    explicit CompassRadial(QWidget* parent = nullptr);

    void setScore(std::optional<int> score);

    QSize sizeHint() const override { return { 120, 120 }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<int> value;
};

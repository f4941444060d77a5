#include "ui/journal/JournalCharts.h"

#include "journal/FormatPnL.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <numeric>

using JournalChartData::ValueRange;

namespace {

QColor faded(QColor colour, double opacity)
{
    colour.setAlphaF(float(opacity));
    return colour;
}

void emptyText(QPainter& p, const QRectF& area, const QString& text, const QWidget* widget)
{
    p.setFont(KitPaint::font(12));
    p.setPen(V3::fgFaint.resolve(widget));
    p.drawText(area, Qt::AlignCenter | Qt::TextWordWrap, text);
}

} // namespace

PnLLineChart::PnLLineChart(QWidget* parent)
    : QWidget(parent)
{
    setMinimumHeight(120);
}

void PnLLineChart::setPoints(std::vector<JournalMetrics::DatedValue> points)
{
    values.clear();
    values.reserve(points.size());
    for (const JournalMetrics::DatedValue& point : points)
        values.push_back(point.value);
    valueRange = JournalChartData::seriesRange(values);
    update();
}

QRectF PnLLineChart::plotRect() const
{
    return QRectF(rect()).adjusted(2, 4, -2, -4);
}

void PnLLineChart::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (!valueRange) {
        emptyText(p, rect(), QStringLiteral("No tagged clips yet — add P&L to clips in the Clips tab."), this);
        return;
    }
    const QRectF plot = plotRect();
    const double zeroY = plot.top() + valueRange->y(0, plot.height());
    // A long journal is thinned to what the pixels can show; the line looks the same.
    QPolygonF curve;
    for (const JournalChartData::PlotPoint& point :
        JournalChartData::thinnedSeries(values, int(std::ceil(plot.width() / 2))))
        curve << QPointF(plot.left() + plot.width() * point.at, plot.top() + valueRange->y(point.value, plot.height()));

    const QColor accent = V3::accent.resolve(this);
    QPolygonF area = curve;
    area << QPointF(curve.back().x(), zeroY) << QPointF(curve.front().x(), zeroY);
    p.setPen(Qt::NoPen);
    p.setBrush(faded(accent, 0.2));
    p.drawPolygon(area);
    p.setPen(QPen(V3::line.resolve(this), 1));
    p.drawLine(QPointF(plot.left(), zeroY), QPointF(plot.right(), zeroY));
    p.setPen(QPen(accent, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::BevelJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPolyline(curve);
}

ReturnsHistogram::ReturnsHistogram(QWidget* parent)
    : QWidget(parent)
{
    setFixedHeight(200);
}

void ReturnsHistogram::setValues(std::vector<double> newValues, PnLUnit newUnit)
{
    values = std::move(newValues);
    unit = newUnit;
    binList = JournalChartData::histogram(values);
    update();
}

QRectF ReturnsHistogram::plotRect() const
{
    // Room for the mean's label above the bars.
    return QRectF(rect()).adjusted(2, 20, -2, -2);
}

double ReturnsHistogram::xOf(double value) const
{
    if (binList.empty()) return 0;
    const QRectF plot = plotRect();
    const double first = binList.front().low;
    const double span = std::max(binList.back().high - first, ValueRange::minimumSpan);
    return plot.left() + plot.width() * (value - first) / span;
}

void ReturnsHistogram::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (binList.empty()) {
        emptyText(p, rect(), QStringLiteral("Need at least two trades to draw a distribution."), this);
        return;
    }
    const QRectF plot = plotRect();
    int tallest = 1;
    for (const JournalChartData::Bin& bin : binList)
        tallest = std::max(tallest, bin.count);
    const double slot = plot.width() / double(binList.size());
    p.setPen(Qt::NoPen);
    for (size_t i = 0; i < binList.size(); ++i) {
        const JournalChartData::Bin& bin = binList[i];
        if (bin.count == 0) continue;
        const double middle = bin.low + (bin.high - bin.low) * 0.5;
        p.setBrush(faded((middle >= 0 ? V3::match : V3::alert).resolve(this), 0.7));
        const double h = plot.height() * bin.count / tallest;
        p.drawRoundedRect(
            QRectF(plot.left() + slot * double(i) + 1, plot.bottom() - h, std::max(1.0, slot - 2), h), 2, 2);
    }
    if (binList.front().low <= 0 && 0 <= binList.back().high) {
        p.setPen(QPen(V3::line.resolve(this), 1));
        p.drawLine(QPointF(xOf(0), plot.top()), QPointF(xOf(0), plot.bottom()));
    }
    const double mean = std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
    const QColor accent = V3::accent.resolve(this);
    p.setPen(QPen(accent, 1.5, Qt::DashLine));
    const double meanX = xOf(mean);
    p.drawLine(QPointF(meanX, plot.top()), QPointF(meanX, plot.bottom()));
    p.setFont(KitPaint::font(10, QFont::DemiBold));
    p.setPen(accent);
    const QString label = QStringLiteral("μ ") + formatPnL(mean, unit, 1);
    const double labelWidth = QFontMetricsF(p.font()).horizontalAdvance(label) + 4;
    const double labelX = std::clamp(meanX - labelWidth / 2, 0.0, std::max(0.0, width() - labelWidth));
    p.drawText(QRectF(labelX, 0, labelWidth, 18), Qt::AlignCenter, label);
}

MonteCarloFanChart::MonteCarloFanChart(QWidget* parent)
    : QWidget(parent)
{
    setFixedHeight(240);
}

void MonteCarloFanChart::setResult(std::optional<MonteCarloEngine::Result> result, PnLUnit newUnit)
{
    shown = std::move(result);
    unit = newUnit;
    update();
}

QRectF MonteCarloFanChart::plotRect() const
{
    return QRectF(rect()).adjusted(2, 4, -2, -4);
}

void MonteCarloFanChart::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (!shown) {
        emptyText(p, rect(), QStringLiteral("No simulation result yet — adjust controls."), this);
        return;
    }
    const QRectF plot = plotRect();
    const ValueRange range = JournalChartData::fanRange(*shown);
    const auto& bands = shown->bands;
    if (bands.size() < 2) return;
    auto at = [&](size_t i, double value) {
        return QPointF(plot.left() + JournalChartData::indexX(i, bands.size(), plot.width()),
            plot.top() + range.y(value, plot.height()));
    };
    auto band = [&](double MonteCarloEngine::Result::Bands::*low, double MonteCarloEngine::Result::Bands::*high) {
        QPolygonF polygon;
        for (size_t i = 0; i < bands.size(); ++i)
            polygon << at(i, bands[i].*high);
        for (size_t i = bands.size(); i-- > 0;)
            polygon << at(i, bands[i].*low);
        return polygon;
    };
    using B = MonteCarloEngine::Result::Bands;
    const QColor accent = V3::accent.resolve(this);
    p.setPen(QPen(V3::line.resolve(this), 1));
    const double zeroY = plot.top() + range.y(0, plot.height());
    p.drawLine(QPointF(plot.left(), zeroY), QPointF(plot.right(), zeroY));
    p.setPen(Qt::NoPen);
    p.setBrush(faded(accent, 0.15));
    p.drawPolygon(band(&B::p05, &B::p95));
    p.setBrush(faded(accent, 0.32));
    p.drawPolygon(band(&B::p25, &B::p75));
    QPolygonF median;
    for (size_t i = 0; i < bands.size(); ++i)
        median << at(i, bands[i].p50);
    p.setPen(QPen(accent, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPolyline(median);
}

CompassRadial::CompassRadial(QWidget* parent)
    : QWidget(parent)
{
    setFixedSize(120, 120);
}

void CompassRadial::setScore(std::optional<int> score)
{
    value = score;
    update();
}

void CompassRadial::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const double size = std::min(width(), height()) - 8;
    const QPointF centre = QRectF(rect()).center();
    auto ring = [&](double fraction) {
        const double d = size * fraction;
        return QRectF(centre.x() - d / 2, centre.y() - d / 2, d, d);
    };
    const QColor line = V3::line.resolve(this);
    const double opacities[] = { 1.0, 0.5, 0.4 };
    const double fractions[] = { 0.95, 0.65, 0.35 };
    p.setBrush(Qt::NoBrush);
    for (int i = 0; i < 3; ++i) {
        p.setPen(QPen(faded(line, line.alphaF() * opacities[i]), 0.5));
        p.drawEllipse(ring(fractions[i]));
    }
    const double fraction = value ? std::clamp(*value / 100.0, 0.0, 1.0) : 0.0;
    if (fraction > 0) {
        const QRectF arc = ring(0.95);
        QLinearGradient gradient(arc.topLeft(), arc.bottomRight());
        gradient.setColorAt(0, V3::accent.resolve(this));
        gradient.setColorAt(1, V3::matchSoft);
        p.setPen(QPen(QBrush(gradient), 6, Qt::SolidLine, Qt::RoundCap));
        // From twelve o'clock, clockwise.
        p.drawArc(arc, 90 * 16, -int(std::lround(fraction * 360 * 16)));
    }
    p.setFont(KitPaint::font(22, QFont::DemiBold));
    p.setPen((value ? V3::fg : V3::fgFaint).resolve(this));
    p.drawText(rect(), Qt::AlignCenter, value ? QString::number(*value) : QStringLiteral("–"));
}

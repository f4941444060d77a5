#include "ui/journal/CalendarGrid.h"

#include "journal/FormatPnL.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QFontMetricsF>
#include <QGridLayout>
#include <QLocale>
#include <QPainter>

namespace {

constexpr qreal tileRadius = 8;

QColor withAlpha(QColor colour, double opacity)
{
    colour.setAlphaF(float(colour.alphaF() * opacity));
    return colour;
}

const char* const headerTexts[] = { "SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT", "WEEKLY" };
// The same, for a calendar too narrow for the words.
const char* const shortHeaderTexts[] = { "S", "M", "T", "W", "T", "F", "S", "WK" };
// Below this width per column the headers take their short form.
constexpr int wordsColumnWidth = 40;

// Draws `text` in `box` only if it fits there whole: a cut amount would read as another amount.
void drawIfFits(QPainter& p, const QRectF& box, int flags, const QString& text)
{
    if (QFontMetricsF(p.font()).horizontalAdvance(text) <= box.width()) p.drawText(box, flags, text);
}

QColor toneColour(double value, const QWidget* widget)
{
    if (value > 0) return V3::match.resolve(widget);
    if (value < 0) return V3::alert.resolve(widget);
    return V3::fgMute.resolve(widget);
}

} // namespace

CalendarCell::CalendarCell(QWidget* parent)
    : QWidget(parent)
{
    setFixedHeight(cellHeight);
}

QColor CalendarCell::tileColour(std::optional<double> pnl, const QWidget* widget)
{
    if (!pnl) return withAlpha(V3::bgInset.resolve(widget), 0.4);
    if (*pnl > 0) return withAlpha(V3::matchSoft, 0.35);
    if (*pnl < 0) return withAlpha(V3::alertSoft, 0.4);
    return withAlpha(V3::bgInset.resolve(widget), 0.6);
}

void CalendarCell::setData(std::optional<QDate> day, std::optional<double> pnl, int tradeCount, PnLUnit unit)
{
    date = day;
    amount = day ? pnl : std::nullopt;
    trades = tradeCount;
    // The amount shows only on a day with trades; a day tagged in other units shows just its number.
    const bool showsAmount = amount && trades >= 1;
    amountText = showsAmount ? formatPnL(*amount, unit, 0) : QString();
    tradesText = showsAmount ? QStringLiteral("%1 trade%2").arg(trades).arg(trades == 1 ? "" : "s") : QString();
    setAccessibleName(day ? QLocale::c().toString(*day, QStringLiteral("MMMM d, yyyy")) : QString());
    setAccessibleDescription(showsAmount ? amountText + QStringLiteral(", ") + tradesText
            : day                        ? QStringLiteral("No trades")
                                         : QString());
    update();
}

void CalendarCell::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF tile = QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5);
    p.setPen(Qt::NoPen);
    p.setBrush(tileColour(amount, this));
    p.drawRoundedRect(tile, tileRadius, tileRadius);
    if (!date) return;
    const qreal inset = width() < 40 ? 2 : 6;
    const QRectF inner = tile.adjusted(inset, 4, -inset, -4);
    p.setFont(KitPaint::font(11, QFont::DemiBold));
    p.setPen(V3::fgMute.resolve(this));
    p.drawText(inner, (width() < 40 ? Qt::AlignHCenter : Qt::AlignLeft) | Qt::AlignTop, QString::number(date->day()));
    if (amountText.isEmpty()) return;
    p.setFont(KitPaint::font(12, QFont::DemiBold));
    p.setPen(toneColour(*amount, this));
    drawIfFits(p, inner.adjusted(0, 14, 0, -12), Qt::AlignRight | Qt::AlignVCenter, amountText);
    p.setFont(KitPaint::font(9));
    p.setPen(V3::fgFaint.resolve(this));
    drawIfFits(p, inner, Qt::AlignRight | Qt::AlignBottom, tradesText);
}

WeeklyCell::WeeklyCell(QWidget* parent)
    : QWidget(parent)
{
    setFixedHeight(CalendarCell::cellHeight);
}

void WeeklyCell::setData(int week, double total, int days, PnLUnit unit)
{
    sum = total;
    title = QStringLiteral("Week %1").arg(week);
    totalText = formatPnL(total, unit, 2);
    daysText = QStringLiteral("%1 day%2").arg(days).arg(days == 1 ? "" : "s");
    setAccessibleName(title);
    setAccessibleDescription(totalText + QStringLiteral(", ") + daysText);
    update();
}

void WeeklyCell::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF tile = QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5);
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgCard.resolve(this));
    p.drawRoundedRect(tile, tileRadius, tileRadius);
    const qreal inset = width() < 40 ? 2 : 6;
    const QRectF inner = tile.adjusted(inset, 4, -inset, -4);
    p.setFont(KitPaint::font(10, QFont::DemiBold));
    p.setPen(V3::fgFaint.resolve(this));
    // Too narrow for "Week 3", the tile keeps the week's number.
    const bool words = QFontMetricsF(p.font()).horizontalAdvance(title) <= inner.width();
    p.drawText(
        inner, (words ? Qt::AlignLeft : Qt::AlignHCenter) | Qt::AlignTop, words ? title : title.section(u' ', -1));
    p.setFont(KitPaint::font(12, QFont::DemiBold));
    p.setPen(toneColour(sum, this));
    drawIfFits(p, inner, Qt::AlignLeft | Qt::AlignVCenter, totalText);
    p.setFont(KitPaint::font(9));
    p.setPen(V3::fgFaint.resolve(this));
    drawIfFits(p, inner, Qt::AlignLeft | Qt::AlignBottom, daysText);
}

CalendarGrid::CalendarGrid(QWidget* parent)
    : QWidget(parent)
{
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(2);
    for (int column = 0; column < 8; ++column) {
        auto* header = new V3Text(QLatin1String(headerTexts[column]), 10, QFont::DemiBold, V3::fgFaint, this);
        header->setAlignment(Qt::AlignCenter);
        header->setMinimumWidth(1);
        headers.push_back(header);
        grid->addWidget(header, 0, column);
        grid->setColumnStretch(column, column == 7 ? 5 : 4);
    }
    for (int row = 0; row < 6; ++row) {
        for (int column = 0; column < 7; ++column) {
            cells.push_back(new CalendarCell(this));
            grid->addWidget(cells.back(), row + 1, column);
        }
        weekly.push_back(new WeeklyCell(this));
        grid->addWidget(weekly.back(), row + 1, 7);
    }
}

void CalendarGrid::setData(const QDate& monthAnchor, const std::map<QDate, double>& pnlByDay,
    const std::map<QDate, int>& countByDay, PnLUnit unit)
{
    const auto weeks = JournalChartData::monthWeeks(monthAnchor);
    for (size_t row = 0; row < weeks.size(); ++row) {
        for (size_t column = 0; column < 7; ++column) {
            const std::optional<QDate>& day = weeks[row][column];
            std::optional<double> pnl;
            int count = 0;
            if (day) {
                if (auto found = pnlByDay.find(*day); found != pnlByDay.end()) pnl = found->second;
                if (auto found = countByDay.find(*day); found != countByDay.end()) count = found->second;
            }
            cells[row * 7 + column]->setData(day, pnl, count, unit);
        }
        const JournalChartData::WeekTotal week = JournalChartData::weekTotal(weeks[row], pnlByDay);
        weekly[row]->setData(int(row) + 1, week.total, week.days, unit);
    }
}

void CalendarGrid::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const bool words = width() >= 8 * wordsColumnWidth;
    for (size_t column = 0; column < headers.size(); ++column)
        headers[column]->setText(QLatin1String(words ? headerTexts[column] : shortHeaderTexts[column]));
}

CalendarCell* CalendarGrid::cellFor(const QDate& day) const
{
    for (CalendarCell* cell : cells)
        if (cell->day() == day) return cell;
    return nullptr;
}

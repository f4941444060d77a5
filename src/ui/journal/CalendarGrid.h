#pragma once

#include "journal/PnLUnit.h"
#include "ui/journal/JournalChartData.h"

#include <QDate>
#include <QWidget>

#include <map>
#include <optional>
#include <vector>

class V3Text;

// One day of the month calendar: its number and, with trades and an amount, the day's P&L and its
// trade count, on a tile tinted by the sign of the amount. Without a day it is an empty tile.
// Assistive technology reads the date as its name and what the tile shows as its description.
class CalendarCell : public QWidget {
public:
    static constexpr int cellHeight = 56;

    explicit CalendarCell(QWidget* parent = nullptr);

    void setData(std::optional<QDate> day, std::optional<double> pnl, int tradeCount, PnLUnit unit);
    std::optional<QDate> day() const { return date; }
    // The tile's fill for an amount (absent: no amount that day).
    static QColor tileColour(std::optional<double> pnl, const QWidget* widget);

    QSize sizeHint() const override { return { 60, cellHeight }; }
    // Narrow enough for the whole month beside a small window's sidebar; a tile too narrow for its
    // amount shows its number, and its colour still tells the sign.
    QSize minimumSizeHint() const override { return { 18, cellHeight }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<QDate> date;
    std::optional<double> amount;
    int trades = 0;
    QString amountText;
    QString tradesText;
};

// The end of a calendar row: the week's number, the sum of its days' amounts and how many days
// have one.
class WeeklyCell : public QWidget {
public:
    explicit WeeklyCell(QWidget* parent = nullptr);

    void setData(int week, double total, int days, PnLUnit unit);

    QSize sizeHint() const override { return { 80, CalendarCell::cellHeight }; }
    QSize minimumSizeHint() const override { return { 22, CalendarCell::cellHeight }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString title;
    QString totalText;
    QString daysText;
    double sum = 0;
};

// A month as six rows of Sunday-first weeks, each closed by its weekly total.
class CalendarGrid : public QWidget {
public:
    explicit CalendarGrid(QWidget* parent = nullptr);

    void setData(const QDate& monthAnchor, const std::map<QDate, double>& pnlByDay,
        const std::map<QDate, int>& countByDay, PnLUnit unit);

    // The cell of a day of the month on show, or null.
    CalendarCell* cellFor(const QDate& day) const;
    WeeklyCell* weekCell(int row) const { return weekly.at(size_t(row)); }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    std::vector<V3Text*> headers; // 8
    std::vector<CalendarCell*> cells; // 42, row by row
    std::vector<WeeklyCell*> weekly; // 6
};

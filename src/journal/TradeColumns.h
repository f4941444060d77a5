#pragma once

#include <QString>
#include <QStringList>

#include <array>

// Which column of a broker's trade file holds what, recognised by the header's names: case,
// spaces, underscores and a unit in brackets ("P&L (USD)") don't matter, and each field has the
// common names brokers give it. Stateless.
namespace TradeColumns {

enum class Field { symbol, side, quantity, entryTime, exitTime, pnl, fees, id, outcome, unit, notes, count };

struct Mapping {
    std::array<int, static_cast<size_t>(Field::count)> index;
    // The P&L column says it is net of fees ("Net Profit"): the fees are not taken out again.
    bool pnlIsNet = false;

    Mapping() { index.fill(-1); }
    int at(Field f) const { return index[static_cast<size_t>(f)]; }
    bool has(Field f) const { return at(f) >= 0; }
    // Enough to import from: a time to match by and an amount (or, for a journal's own export, an
    // outcome) to count.
    bool usable() const
    {
        return (has(Field::exitTime) || has(Field::entryTime)) && (has(Field::pnl) || has(Field::outcome));
    }
};

// Where each field stands in `header`. When several columns could be one field, the name that says
// most wins ("Exit Time" over "Time", "Net P&L" over "Profit"), then the leftmost.
Mapping recognise(const QStringList& header);

// A header name as it is compared: lower case, "_" and "-" as spaces, spaces collapsed, a bracketed
// unit at the end dropped: "Realized_P&L (USD)" is "realized p&l".
QString normalised(const QString& name);

} // namespace TradeColumns

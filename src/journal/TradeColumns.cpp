#include "journal/TradeColumns.h"

#include <initializer_list>

namespace TradeColumns {

namespace {

struct Names {
    Field field;
    // In order of preference: a name earlier in the list wins over a later one.
    std::initializer_list<const char*> names;
};

// The exported journal's own names are among them, so that an export reads back as it was.
const Names known[] = {
    { Field::symbol, { "symbol", "ticker", "instrument", "contract", "market", "security", "underlying" } },
    { Field::side, { "side", "action", "direction", "buy/sell", "long/short", "b/s", "l/s" } },
    { Field::quantity, { "qty", "quantity", "size", "shares", "contracts", "lots", "volume", "filled qty" } },
    { Field::entryTime,
        { "entry time", "open time", "opened", "entry date", "entry", "open date", "entered at", "opened at",
            "buy time" } },
    { Field::exitTime,
        { "exit time", "close time", "closed", "exit date", "close date", "closed at", "exited at", "exit", "time",
            "date/time", "datetime", "date", "sell time" } },
    { Field::pnl,
        { "net pnl", "net p&l", "net profit", "realized pnl", "realized p&l", "realised pnl", "realised p&l", "pnl",
            "p&l", "p/l", "profit/loss", "profit", "realized", "realised", "gross pnl", "gross p&l", "gross profit" } },
    { Field::fees, { "fees", "fee", "commission", "commissions", "comm", "fees & commissions" } },
    { Field::id, { "trade id", "id", "trade #", "trade no", "ticket", "deal id", "position id" } },
    { Field::outcome, { "outcome", "result" } },
    { Field::unit, { "unit" } },
    { Field::notes, { "notes", "note", "comment", "comments" } },
};

bool isNet(const QString& name)
{
    return name.startsWith(QLatin1StringView("net "));
}

} // namespace

QString normalised(const QString& name)
{
    QString s = name.trimmed().toLower();
    // A unit or currency in brackets at the end: "P&L (USD)", "Fees [$]".
    if ((s.endsWith(u')') && s.contains(u'(')) || (s.endsWith(u']') && s.contains(u'['))) {
        const qsizetype open = s.lastIndexOf(s.endsWith(u')') ? u'(' : u'[');
        if (open > 0) s = s.left(open);
    }
    QString out;
    out.reserve(s.size());
    for (QChar c : s) {
        if (c == u'_' || c == u'-' || c == u'.' || c.isSpace()) c = u' ';
        if (c == u' ' && (out.isEmpty() || out.endsWith(u' '))) continue;
        out += c;
    }
    return out.trimmed();
}

Mapping recognise(const QStringList& header)
{
    Mapping mapping;
    QStringList names;
    names.reserve(header.size());
    for (const QString& h : header)
        names << normalised(h);
    std::array<int, static_cast<size_t>(Field::count)> rank;
    rank.fill(1 << 30);
    std::vector<bool> taken(static_cast<size_t>(names.size()), false);
    // Fields in the table's order, so that "entry" goes to the entry time before the exit time
    // could claim a column by a weaker name; a column serves one field only.
    for (const Names& field : known) {
        const auto f = static_cast<size_t>(field.field);
        int r = 0;
        for (const char* name : field.names) {
            for (qsizetype i = 0; i < names.size(); ++i) {
                if (taken[static_cast<size_t>(i)] || names[i] != QLatin1StringView(name)) continue;
                if (r < rank[f]) {
                    rank[f] = r;
                    mapping.index[f] = int(i);
                }
                break;
            }
            ++r;
        }
        if (mapping.index[f] >= 0) taken[static_cast<size_t>(mapping.index[f])] = true;
    }
    if (mapping.has(Field::pnl)) mapping.pnlIsNet = isNet(names[mapping.at(Field::pnl)]);
    return mapping;
}

} // namespace TradeColumns

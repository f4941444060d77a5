#include "journal/TradeFileReader.h"

#include "journal/ClipMeta.h"
#include "journal/CsvReader.h"
#include "journal/TradeColumns.h"
#include "journal/TradeValues.h"

#include <QHash>

#include <cmath>

namespace TradeFileReader {

namespace {

using TradeColumns::Field;

QString field(const CsvReader::Row& row, const TradeColumns::Mapping& columns, Field f)
{
    const int i = columns.at(f);
    if (i < 0 || i >= row.fields.size()) return {};
    return row.fields[i].trimmed();
}

// A 64-bit FNV-1a over the UTF-16 of the text: the same on every run and every machine.
quint64 fnv1a(const QString& text)
{
    quint64 h = 1469598103934665603ULL;
    for (const QChar c : text) {
        h ^= c.unicode();
        h *= 1099511628211ULL;
    }
    return h;
}

QString number(const std::optional<double>& v)
{
    return v ? QString::number(*v, 'g', 17) : QString();
}

} // namespace

QString hashKey(const ClipTrade& t, int occurrence)
{
    const QString fields = QStringList { t.symbol, t.side, number(t.quantity), number(t.entryTime), number(t.exitTime),
        number(t.pnl), number(t.fees), rawValue(t.outcome), QString::number(occurrence) }
                               .join(u'\x1f');
    return QStringLiteral("h:") + QString::number(fnv1a(fields), 16).rightJustified(16, u'0');
}

Result read(const QByteArray& bytes)
{
    Result result;
    const CsvReader::Table table = CsvReader::read(bytes);
    result.readAsLatin1 = table.readAsLatin1;
    if (table.rows.empty()) {
        result.error = QStringLiteral("the file has no header and no trades");
        return result;
    }

    size_t headerRow = 0;
    TradeColumns::Mapping columns;
    for (size_t i = 0; i < table.rows.size() && i < size_t(headerSearchRows); ++i) {
        const TradeColumns::Mapping m = TradeColumns::recognise(table.rows[i].fields);
        if (m.usable()) {
            headerRow = i;
            columns = m;
            break;
        }
    }
    if (!columns.usable()) {
        for (const QString& name : table.rows.front().fields)
            if (!name.trimmed().isEmpty()) result.columns << name.trimmed();
        const TradeColumns::Mapping first = TradeColumns::recognise(table.rows.front().fields);
        const bool time = first.has(Field::exitTime) || first.has(Field::entryTime);
        const bool amount = first.has(Field::pnl) || first.has(Field::outcome);
        const QString missing = !time && !amount ? QStringLiteral("no time and no P&L column")
            : !time                              ? QStringLiteral("no time column")
                                                 : QStringLiteral("no P&L column");
        const QString found
            = result.columns.isEmpty() ? QStringLiteral("(none)") : result.columns.join(QStringLiteral(", "));
        result.error = missing + QStringLiteral(" (the columns are: ") + found + u')';
        return result;
    }
    for (const QString& name : table.rows[headerRow].fields)
        result.columns << name.trimmed();

    QHash<QString, int> seen; // hash keys of this file, counting rows alike in every field
    QHash<QString, int> idLines; // the line of each trade id of this file
    for (size_t r = headerRow + 1; r < table.rows.size(); ++r) {
        const CsvReader::Row& row = table.rows[r];
        const auto skip = [&](const QString& reason) { result.skipped.push_back({ row.line, reason }); };

        ClipTrade t;
        const QString exitText = field(row, columns, Field::exitTime);
        const QString entryText = field(row, columns, Field::entryTime);
        if (!entryText.isEmpty()) {
            t.entryTime = TradeValues::parseTime(entryText);
            if (!t.entryTime) {
                skip(QStringLiteral("unreadable entry time \"%1\"").arg(entryText));
                continue;
            }
        }
        if (!exitText.isEmpty()) {
            const auto exit = TradeValues::parseTime(exitText);
            if (!exit) {
                skip(QStringLiteral("unreadable time \"%1\"").arg(exitText));
                continue;
            }
            t.exitTime = *exit;
        } else if (t.entryTime) {
            // A file with only an opening time: the trade is matched by it.
            t.exitTime = *t.entryTime;
        } else {
            skip(QStringLiteral("no time"));
            continue;
        }

        const QString outcomeText = field(row, columns, Field::outcome);
        std::optional<TradeOutcome> outcome;
        if (!outcomeText.isEmpty()) {
            outcome = tradeOutcomeFromRaw(outcomeText.toLower());
            if (!outcome) {
                skip(QStringLiteral("unknown outcome \"%1\"").arg(outcomeText));
                continue;
            }
        }
        const QString pnlText = field(row, columns, Field::pnl);
        if (!pnlText.isEmpty()) {
            t.pnl = TradeValues::parseAmount(pnlText);
            if (!t.pnl) {
                skip(QStringLiteral("unreadable P&L \"%1\"").arg(pnlText));
                continue;
            }
        } else if (!outcome) {
            skip(QStringLiteral("no P&L"));
            continue;
        }
        const QString feesText = field(row, columns, Field::fees);
        if (!feesText.isEmpty()) {
            const auto fees = TradeValues::parseAmount(feesText);
            if (!fees) {
                skip(QStringLiteral("unreadable fees \"%1\"").arg(feesText));
                continue;
            }
            t.fees = std::fabs(*fees);
        }
        if (t.pnl && !columns.pnlIsNet) *t.pnl -= t.fees;
        if (t.pnl && !ClipMeta::isPlausiblePnL(*t.pnl)) {
            skip(QStringLiteral("P&L beyond any account"));
            continue;
        }
        const QString quantityText = field(row, columns, Field::quantity);
        if (!quantityText.isEmpty()) {
            t.quantity = TradeValues::parseAmount(quantityText);
            if (!t.quantity) {
                skip(QStringLiteral("unreadable quantity \"%1\"").arg(quantityText));
                continue;
            }
        }
        const QString unitText = field(row, columns, Field::unit);
        if (!unitText.isEmpty()) {
            const auto unit = pnlUnitFromRaw(unitText);
            if (!unit) {
                skip(QStringLiteral("unknown unit \"%1\"").arg(unitText));
                continue;
            }
            t.unit = *unit;
        }
        t.symbol = field(row, columns, Field::symbol);
        t.side = TradeValues::normalisedSide(field(row, columns, Field::side));
        t.notes = field(row, columns, Field::notes);
        if (outcome) {
            t.outcome = *outcome;
        } else if (*t.pnl > 0) {
            t.outcome = TradeOutcome::win;
        } else if (*t.pnl < 0) {
            t.outcome = TradeOutcome::loss;
        } else {
            t.outcome = TradeOutcome::breakeven;
        }
        const QString id = field(row, columns, Field::id);
        if (!id.isEmpty()) {
            // One trade, one id: a second row with it is the same trade listed again.
            if (const auto first = idLines.constFind(id); first != idLines.constEnd()) {
                skip(QStringLiteral("trade id \"%1\" again (first on line %2)").arg(id).arg(*first));
                continue;
            }
            idLines.insert(id, row.line);
            t.key = QStringLiteral("id:") + id;
        } else {
            const QString alike = hashKey(t, 0);
            t.key = hashKey(t, seen[alike]++);
        }
        result.trades.push_back(std::move(t));
    }
    return result;
}

} // namespace TradeFileReader

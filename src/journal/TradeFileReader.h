#pragma once

#include "journal/ClipTrade.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <vector>

// Reads a broker's file of closed trades, one a row under a header (see CsvReader and
// TradeColumns): the symbol, side, quantity, entry and exit times, realised P&L, fees and the trade
// id where the file has them. A row needs a time and an amount; one without, or with either
// unreadable, is skipped and named by its line, and the rest are read. Preamble lines before the
// header (an account number, a date range) are passed over.
//
// Pure: no files and no event loop; callable from any thread.
namespace TradeFileReader {

// How far down the file a header is looked for.
constexpr int headerSearchRows = 10;

struct Skipped {
    int line = 0;
    QString reason;
};

struct Result {
    QList<ClipTrade> trades; // in the file's order
    std::vector<Skipped> skipped;
    bool readAsLatin1 = false;
    // Set when nothing could be read at all: no header with a time and a P&L column.
    QString error;
    // The header's names as the file writes them, for the error's sake.
    QStringList columns;
};

Result read(const QByteArray& bytes);

// The key of a trade without an id column: a hash of the fields as read, with `occurrence` (how
// many identical rows came before it in the file) so that two real trades alike in every field
// stay two.
QString hashKey(const ClipTrade& trade, int occurrence);

} // namespace TradeFileReader

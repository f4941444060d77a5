#pragma once

#include "journal/ClipTrade.h"

#include <QList>
#include <QString>

#include <optional>

// The trades of the broker's file that no clip saw: `velotape-trades.json` in the save folder, a
// JSON object whose "trades" array holds them as the sidecars hold theirs. They count in the
// journal's statistics like any clip's trades.
//
// Synchronous and stateless; safe from any thread. The write is atomic (a temporary file renamed
// into place).
namespace JournalTradesFile {

constexpr const char* fileName = "velotape-trades.json";
// Trades are a couple of hundred bytes each; this is some hundreds of thousands of them.
constexpr qint64 maxBytes = 256LL * 1024 * 1024;

QString path(const QString& folder);

struct Loaded {
    QList<ClipTrade> trades;
    // The file is there but can't be read (broken JSON, a bad trade, too large): nothing is written
    // over it, so that what it holds is not lost.
    bool unreadable = false;
};
// No file is no trades.
Loaded load(const QString& folder);

// Writes the trades; no trades removes the file. False, with the reason, when it could not be
// written; the previous file then stands.
bool save(const QString& folder, const QList<ClipTrade>& trades, QString* error = nullptr);

} // namespace JournalTradesFile

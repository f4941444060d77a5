#pragma once

#include "journal/ClipEntry.h"
#include "journal/ClipTrade.h"

#include <QByteArray>
#include <QList>

// The journal as a CSV file, one row per trade or tagged clip, oldest first: clip path, time,
// symbol, side, quantity, outcome, net P&L, fees, unit, notes, trade id and entry time. A clip whose
// tag comes from its trades gives a row for each of them; a clip the user tagged, one row of its
// own tag. The names are those the import recognises, so the file reads back into a journal with
// the same statistics. Times are local, with their offset.
//
// Pure; callable from any thread.
namespace JournalExport {

QByteArray csv(const QList<ClipEntry>& clips, const QList<ClipTrade>& withoutClip);

} // namespace JournalExport

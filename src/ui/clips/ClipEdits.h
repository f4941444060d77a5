#pragma once

#include "journal/ClipMeta.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>

// The clips screen's rules for what the user types and what a card reads: a new name for a clip,
// an amount typed into the tag bar, and the card's texts. Plain functions, no files and no widgets.
namespace ClipEdits {

// Where a clip moves when the user renames it to `text`: the text trimmed, "/" and ":" made "-",
// the old extension kept, in the same folder. None when nothing changes (an empty text, or the
// current name).
std::optional<QString> renameTarget(const QString& clipPath, const QString& text);

// The record after the user typed `text` as the amount: a decimal comma is read as a point, and
// the whole text must be one number, else the amount goes. The magnitude is kept; the sign tags an
// untagged clip (below zero a loss, above a win) and leaves a tagged one as it is.
ClipMeta committedPnL(ClipMeta meta, const QString& text);
// What the amount field shows for a record: the magnitude with two decimals, "-" before it on a
// loss; empty without an amount.
QString pnlText(const ClipMeta& meta);
// The amount field's grey example in the record's unit.
QString pnlPlaceholder(PnLUnit unit);
// The unit after `unit` in the unit button's cycle: dollars, R, points, ticks, dollars.
PnLUnit nextUnit(PnLUnit unit);
// `after`, a change the user made to `before` in the tag bar: once the outcome, the amount or the
// unit differ, the tag is the user's own, and neither the detector nor an import writes over it.
ClipMeta madeByUser(const ClipMeta& before, ClipMeta after);
// The pill's press: that outcome, or unset when the record already holds it.
TradeOutcome toggledOutcome(TradeOutcome current, TradeOutcome pressed);

// The tags with `text` added at the end: trimmed, and not when it is empty or the clip has it
// already in any case.
QStringList withTag(const QStringList& tags, const QString& text);
QStringList withoutTag(const QStringList& tags, const QString& tag);

// A trade without a clip as the clips screen lists it: "Mar 5, 14:07 · ES · long 2 · -$50.00",
// in local time, leaving out what the trade does not say.
QString tradeLine(const ClipTrade& trade);

// A clip's length on its badge, rounded to the second: "1:05", or "1:00:00" from an hour up.
QString formatDuration(double seconds);
// "just now", "5 minutes ago", "yesterday", "3 weeks ago" (or "in …" for a date ahead of `now`).
QString relativeDate(const QDateTime& date, const QDateTime& now);
// A file size in decimal units, as file managers show it: "812 bytes", "12.3 MB".
QString byteCount(qint64 bytes);

} // namespace ClipEdits

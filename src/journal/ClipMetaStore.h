#pragma once

#include "journal/ClipMeta.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

// The sidecar file of a clip: `<folder>/<stem>.clipmeta.json` beside `<folder>/<stem>.<ext>`, a
// UTF-8 JSON object with sorted keys, pretty printed. This is the one place that knows its format.
//
// Nothing here reports a failure: a clip whose sidecar is missing, unreadable, malformed or larger
// than `maxSidecarBytes` simply has no metadata, and its file is left as it is. A P&L beyond
// ClipMeta::maxPnLMagnitude reads as none, the rest of the record as written. Synchronous; the
// program calls it on the main thread, but it has no state and is safe from any thread. Writes are
// atomic (a temporary file renamed into place), so a reader never sees half a sidecar.
namespace ClipMetaStore {

// A real sidecar is a few hundred bytes. Anything larger is treated as unreadable, so that a hostile
// file cannot make a rescan read gigabytes into memory.
constexpr qint64 maxSidecarBytes = 1024 * 1024;

QString sidecarPath(const QUrl& clip);

// The record of the clip's sidecar, or the empty record on any failure; never a partial record.
ClipMeta load(const QUrl& clip);

// Writes the record; the empty record removes the sidecar instead. A record that cannot be encoded
// (a non-finite number) or written leaves the previous sidecar as it was.
void save(const ClipMeta& meta, const QUrl& clip);

// The format itself, without files. decode gives nothing where load gives the empty record.
std::optional<ClipMeta> decode(const QByteArray& json);
std::optional<QByteArray> encode(const ClipMeta& meta);

} // namespace ClipMetaStore

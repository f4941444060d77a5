#pragma once

#include "journal/ClipMeta.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>
#include <vector>

// The sidecar file of a clip: `<folder>/<stem>.clipmeta.json` beside `<folder>/<stem>.<ext>`, a
// UTF-8 JSON object with sorted keys, pretty printed. This is the one place that knows its format.
//
// A sidecar is a regular file of ours and nothing else: a symbolic link, a folder, a FIFO or a
// device in its place is not read and never written through or replaced, and neither is a file
// that does not read as a record (malformed, of a wrong type, larger than `maxSidecarBytes`): it
// may hold the user's notes in a form this program does not know. Such a clip loads as untagged,
// and a save refuses with the reason. Keys this program does not know survive a load and a save.
// A P&L beyond ClipMeta::maxPnLMagnitude reads as none, and the file keeps it until the user
// types another.
//
// Synchronous; the program calls it on the main thread and from `velotape detect`, but it has no
// state and is safe from any thread. Writes go to a new file in the same folder that is renamed
// into place, so a reader never sees half a sidecar.
namespace ClipMetaStore {

// A real sidecar is a few hundred bytes. Anything larger is treated as unreadable, so that a hostile
// file cannot make a rescan read gigabytes into memory.
constexpr qint64 maxSidecarBytes = 1024 * 1024;

QString sidecarPath(const QUrl& clip);

// What lies in a clip's sidecar place.
struct Sidecar {
    enum class State {
        absent, // nothing of that name: the clip is untagged
        record, // a sidecar that reads as a record
        unusable, // something else: left alone, never replaced
    };
    State state = State::absent;
    ClipMeta meta; // the record, or the empty one unless `record`
    QString problem; // why it is unusable, naming the file: "…/a.clipmeta.json is a symbolic link"
    // The file's identity while it exists: two names of one file (on a file system that ignores
    // case, or a hard link) are one sidecar.
    quint64 device = 0;
    quint64 inode = 0;
};
Sidecar read(const QUrl& clip);

// The record of the clip's sidecar, or the empty record when there is none or it is unusable;
// never a partial record.
ClipMeta load(const QUrl& clip);

struct SaveFailure {
    enum class Reason {
        unusable, // the place holds something that is not a readable sidecar of ours
        changed, // the sidecar no longer holds the record the change was made from
        notEncodable, // a number JSON cannot hold (NaN, infinity)
        writeFailed, // the file system refused (full, read-only, no permission)
    };
    Reason reason;
    QString text; // what went wrong, naming the sidecar; for the user's eyes
};

// Writes the record, or removes the sidecar for the empty record. With `expected`, only while the
// sidecar still holds that record (the empty record: no sidecar at all), which is checked again
// just before the new file takes its place. Nothing is changed on disk when it fails.
std::optional<SaveFailure> save(
    const ClipMeta& meta, const QUrl& clip, const std::optional<ClipMeta>& expected = std::nullopt);

// Many sidecars at once, as an import writes them, under the same rules as save() each: every new
// file is written first, then all of them reach the disk together (one flush of the file system
// instead of one a file), then each takes its sidecar's place if the sidecar still holds
// `expected`, then each folder's new names reach the disk. A crash at any point leaves every
// sidecar holding its old record or its new one. A record that can't be saved fails alone; the
// others go on.
struct Pending {
    QUrl clip;
    ClipMeta meta;
    std::optional<ClipMeta> expected;
};
struct SavedAll {
    // One for each record given, in their order: nothing when it was saved.
    std::vector<std::optional<SaveFailure>> failures;
    // The renames took place but a folder could not be flushed (rare: the disk failed): a crash
    // before the system writes it may still lose them. Names the folder; empty when all is well.
    QString unflushed;
};
SavedAll saveAll(const std::vector<Pending>& records);

// A read-change-write that cannot lose what someone else wrote in between: `change` makes the new
// record from the one on disk, or declines with nothing; the result is saved only while the disk
// still holds what `change` saw, and if another writer came first, it is read and asked again.
struct Changed {
    enum class Status { written, declined, failed };
    Status status = Status::failed;
    ClipMeta meta; // the record on disk afterwards (written or declined)
    std::optional<SaveFailure> failure; // when failed
};
Changed change(const QUrl& clip, const std::function<std::optional<ClipMeta>(const ClipMeta& current)>& change);

// The format itself, without files. decode gives nothing where read finds the file unusable.
std::optional<ClipMeta> decode(const QByteArray& json);
std::optional<QByteArray> encode(const ClipMeta& meta);

} // namespace ClipMetaStore

#pragma once

#include "journal/ClipAutoDetect.h"
#include "journal/ClipMeta.h"

#include <QString>
#include <QUrl>

// Stores a figure read off a clip in the clip's sidecar, the last step of the detection after a
// save and of `velotape detect --write`. What the user typed is never written over: a clip that
// carries an outcome or an amount keeps them, also when they were typed while the figure was being
// read, since the sidecar is read again just before the write and the write happens only while it
// still holds what was read. A sidecar that cannot be read is left alone and named.
//
// Synchronous file work; any thread.
namespace PnLTagWriter {

// Whether detection may tag the clip: no outcome and no amount, not even one too large to be
// used, which the sidecar keeps as written. Notes alone leave a clip untagged.
bool isUntagged(const ClipMeta& meta);

struct Written {
    enum class Status {
        written, // the figure is in the sidecar
        kept, // the user's own tag was there: nothing written
        failed, // the sidecar could not be read or written: nothing written
    };
    Status status = Status::failed;
    ClipMeta meta; // the record on disk afterwards, unless failed
    QString problem; // when failed: why, naming the sidecar
};
Written write(const QUrl& clip, const ClipAutoDetect::Result& result);

} // namespace PnLTagWriter

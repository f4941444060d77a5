#pragma once

#include <QString>

#include <chrono>

// The temporary files that ClipExporter writes beside a clip (".<clip name>.<8 hex digits>.part",
// renamed into place when complete) and that a crash in the middle of an export leaves behind.
namespace PartialExports {

// An export writes its file without pause and takes seconds: one untouched for this long is no
// export's any more.
inline constexpr std::chrono::seconds quietTime { 60 };

// Whether `fileName` is an exporter's temporary name for a clip, ".<name>.mp4.<8 hex digits>.part".
bool isTemporaryName(const QString& fileName);

// Removes from `folder` the temporary files that no export can still be writing: every one when no
// other instance runs, otherwise those untouched for quietTime. Other files are never looked at.
// Returns how many went.
int sweep(const QString& folder, bool otherInstancesRunning);

} // namespace PartialExports

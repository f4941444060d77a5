#pragma once

#include <QString>

// Writes a real MP4 (HEVC, through the recorder's own segment writer) of `seconds` at 10 frames a
// second, 320x200: a price chart of `seed` that moves, as a trader's clip would show. False when the
// writer failed.
bool writeSampleClip(const QString& path, double seconds, int seed);

#pragma once

#include "core/SettingsEnums.h"

#include <QByteArray>
#include <QImage>

#include <optional>

// The 16 by 16 gray fingerprint of a picture that the area monitor compares: 256 bytes, row-major,
// top row first, each the linear-light (gamma 1.0) Rec. 709 luminance of one cell, 0 black to 255
// white. The picture is stretched to the grid whatever its shape. Pure functions, any thread.
namespace AreaSignature {

constexpr int gridSize = 16;
constexpr int byteCount = gridSize * gridSize;
// The largest possible difference: every byte from 0 to 255.
constexpr double maxDifference = 255.0 * byteCount;

// Each cell averages the pixels it covers, each weighted by how much of it the cell covers, in
// integer sums. The fourth byte of an RGB32 picture is ignored, whatever it holds. None for an
// empty picture.
std::optional<QByteArray> downsampleToSignature(const QImage& image);

// A stored signature counts only at exactly 256 bytes.
bool isValid(const QByteArray& signature);

// The sum of the absolute byte differences, 0 to 65280. Signatures that aren't both valid give 0.
double difference(const QByteArray& reference, const QByteArray& live);

// The value that `difference` must exceed, strictly, for the area to count as changed.
double threshold(AreaSensitivity sensitivity);

} // namespace AreaSignature

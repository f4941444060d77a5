#pragma once

#include "monitor/AreaSignature.h"

#include <QByteArray>
#include <QImage>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

// The area signature of one picture after another, as the monitor's ticks take them: a row of
// pixels that is the same as in the last picture keeps the sums it had, so a still area costs a
// comparison of memory instead of a reduction. The bytes are always downsampleToSignature's, since
// rows are compared by their pixels and not by where they came from.
//
// It keeps the last picture (a shallow copy) until the next one. A picture on the same memory as
// the last one is reduced afresh: its pixels may have been written in place. One thread at a time.
class IncrementalSignature {
public:
    // None for an empty picture.
    std::optional<QByteArray> signatureOf(const QImage& picture);

private:
    QImage previous;
    // The weighted luminance of each row of `previous` in each column of cells.
    std::vector<std::array<uint64_t, AreaSignature::gridSize>> rowSums;
};

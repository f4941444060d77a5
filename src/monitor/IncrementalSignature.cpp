#include "monitor/IncrementalSignature.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using AreaSignature::byteCount;
using AreaSignature::gridSize;

// Rec. 709 luminance weights applied to linear light, in integers: one table per channel, so a
// pixel costs three lookups and two additions, and sums are exact. With 2^32 steps to white each
// entry is within 1.2e-10 of the true value, so a cell rounds as its true average does unless that
// lies within about 1e-7 of a half; sums over a picture of 2^29 pixels still fit 64 bits.
constexpr double tableScale = 4294967296.0;
__extension__ typedef unsigned __int128 Wide;

struct LuminanceTables {
    std::array<uint64_t, 256> red {};
    std::array<uint64_t, 256> green {};
    std::array<uint64_t, 256> blue {};
    uint64_t white = 0;

    LuminanceTables()
    {
        for (int i = 0; i < 256; ++i) {
            const double c = i / 255.0;
            const double linear = c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
            red[size_t(i)] = uint64_t(std::llround(0.2126 * linear * tableScale));
            green[size_t(i)] = uint64_t(std::llround(0.7152 * linear * tableScale));
            blue[size_t(i)] = uint64_t(std::llround(0.0722 * linear * tableScale));
        }
        white = uint64_t(red[255]) + green[255] + blue[255];
    }

    uint64_t luminance(QRgb rgb) const { return red[(rgb >> 16) & 0xff] + green[(rgb >> 8) & 0xff] + blue[rgb & 0xff]; }
};

const LuminanceTables& luminanceTables()
{
    static const LuminanceTables tables;
    return tables;
}

// Where one grid cell lies along an axis of `length` pixels, measured in units of 1/length of a
// cell: a pixel is then 16 units long and a cell `length` units, so every overlap is a whole
// number and the weights of each cell add up to exactly `length`. The cell covers the pixels
// first..last, the first with `firstWeight` units, the last with `lastWeight`, those between with
// all 16 of theirs. A cell inside one pixel has first == last and the weight `length`.
struct CellSpan {
    int first = 0;
    int last = 0;
    uint32_t firstWeight = 0;
    uint32_t lastWeight = 0;
};

std::array<CellSpan, gridSize> spansAlong(int length)
{
    std::array<CellSpan, gridSize> spans {};
    for (int cell = 0; cell < gridSize; ++cell) {
        const int64_t start = int64_t(cell) * length;
        const int64_t end = start + length;
        CellSpan& s = spans[size_t(cell)];
        s.first = int(start / gridSize);
        s.last = int((end - 1) / gridSize);
        if (s.first == s.last) {
            s.firstWeight = uint32_t(length);
        } else {
            s.firstWeight = uint32_t(int64_t(s.first + 1) * gridSize - start);
            s.lastWeight = uint32_t(end - int64_t(s.last) * gridSize);
        }
    }
    return spans;
}

// Each cell's weighted luminance along one row of pixels.
void sumRow(const QRgb* line, const std::array<CellSpan, gridSize>& spans, const LuminanceTables& tables,
    std::array<uint64_t, gridSize>& out)
{
    for (size_t cell = 0; cell < size_t(gridSize); ++cell) {
        const CellSpan& s = spans[cell];
        if (s.first == s.last) {
            out[cell] = uint64_t(s.firstWeight) * tables.luminance(line[s.first]);
            continue;
        }
        // Runs of one colour are the rule on a screen: look up a pixel only when it differs from
        // the one before.
        const uint64_t firstLuminance = tables.luminance(line[s.first]);
        uint64_t inner = 0;
        QRgb last = line[s.first];
        uint64_t lastLuminance = firstLuminance;
        for (int x = s.first + 1; x < s.last; ++x) {
            if (line[x] != last) {
                last = line[x];
                lastLuminance = tables.luminance(last);
            }
            inner += lastLuminance;
        }
        out[cell] = uint64_t(s.firstWeight) * firstLuminance + inner * uint64_t(gridSize)
            + uint64_t(s.lastWeight) * tables.luminance(line[s.last]);
    }
}

} // namespace

std::optional<QByteArray> IncrementalSignature::signatureOf(const QImage& image)
{
    if (image.isNull() || image.width() <= 0 || image.height() <= 0) return std::nullopt;
    // A picture with alpha is drawn over black, as a gray bitmap without alpha would show it:
    // premultiplied colour is exactly that. RGB32's fourth byte doesn't count.
    QImage pixels = image;
    if (pixels.format() != QImage::Format_RGB32 && pixels.format() != QImage::Format_ARGB32_Premultiplied)
        pixels = pixels.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (pixels.isNull()) return std::nullopt;

    const int width = pixels.width();
    const int height = pixels.height();
    const LuminanceTables& tables = luminanceTables();
    const std::array<CellSpan, gridSize> columns = spansAlong(width);

    // Screens repeat whole rows (backgrounds, empty chart space): a row equal to the one above has
    // its sums, and so has a row equal to the last picture's.
    const bool comparable = !previous.isNull() && previous.size() == pixels.size()
        && previous.format() == pixels.format() && previous.constBits() != pixels.constBits();
    rowSums.resize(size_t(height));
    const size_t rowBytes = size_t(width) * sizeof(QRgb);
    const uchar* above = nullptr;
    std::array<uint64_t, size_t(gridSize * gridSize)> cells {};
    for (int y = 0; y < height; ++y) {
        const uchar* line = pixels.constScanLine(y);
        std::array<uint64_t, gridSize>& sums = rowSums[size_t(y)];
        if (comparable && std::memcmp(line, previous.constScanLine(y), rowBytes) == 0) {
            // As they were.
        } else if (above && std::memcmp(line, above, rowBytes) == 0) {
            sums = rowSums[size_t(y) - 1];
        } else {
            sumRow(reinterpret_cast<const QRgb*>(line), columns, tables, sums);
        }
        above = line;
        // Only the cells whose rows this pixel row overlaps: one or two, more in a picture under 16
        // pixels high.
        const int64_t top = int64_t(y) * gridSize;
        for (int row = int(top / height); row < gridSize && int64_t(row) * height < top + gridSize; ++row) {
            const int64_t from = std::max(top, int64_t(row) * height);
            const int64_t to = std::min(top + gridSize, int64_t(row + 1) * height);
            const auto weight = uint64_t(to - from);
            for (size_t cx = 0; cx < size_t(gridSize); ++cx)
                cells[size_t(row) * gridSize + cx] += weight * sums[cx];
        }
    }

    previous = pixels;

    // Each cell's weights add up to width * height units, and white is `tables.white`: the byte is
    // 255 times the cell's share of that, rounded half up.
    const Wide whole = Wide(uint64_t(width) * uint64_t(height)) * tables.white;
    QByteArray signature(byteCount, '\0');
    for (size_t i = 0; i < size_t(byteCount); ++i) {
        const Wide value = (Wide(cells[i]) * 510 + whole) / (2 * whole);
        signature[qsizetype(i)] = char(uint8_t(std::min<Wide>(value, 255)));
    }
    return signature;
}

#include "monitor/AreaSignature.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

// Rec. 709 luminance weights applied to linear light, one table per channel so that a pixel costs
// three lookups and two additions.
struct LuminanceTables {
    std::array<float, 256> red {};
    std::array<float, 256> green {};
    std::array<float, 256> blue {};

    LuminanceTables()
    {
        for (int i = 0; i < 256; ++i) {
            const double c = i / 255.0;
            const double linear = c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
            red[i] = static_cast<float>(0.2126 * linear);
            green[i] = static_cast<float>(0.7152 * linear);
            blue[i] = static_cast<float>(0.0722 * linear);
        }
    }
};

const LuminanceTables& luminanceTables()
{
    static const LuminanceTables tables;
    return tables;
}

// How much of each grid cell one source pixel covers along one axis, in cell widths. A pixel
// overlaps at most two cells when the picture is at least 16 pixels long, and several when it is
// shorter, so each pixel keeps a short list.
struct Coverage {
    int cell;
    float weight;
};

std::vector<std::vector<Coverage>> coverageAlong(int pixels)
{
    std::vector<std::vector<Coverage>> result(static_cast<size_t>(pixels));
    const double scale = static_cast<double>(AreaSignature::gridSize) / pixels;
    for (int p = 0; p < pixels; ++p) {
        const double start = p * scale;
        const double end = (p + 1) * scale;
        for (int cell = static_cast<int>(start); cell < AreaSignature::gridSize && cell < end; ++cell) {
            const double overlap = std::min(end, cell + 1.0) - std::max(start, static_cast<double>(cell));
            if (overlap > 0) result[static_cast<size_t>(p)].push_back({ cell, static_cast<float>(overlap) });
        }
    }
    return result;
}

} // namespace

namespace AreaSignature {

std::optional<QByteArray> downsampleToSignature(const QImage& image)
{
    if (image.isNull() || image.width() <= 0 || image.height() <= 0) return std::nullopt;
    // A picture with alpha is drawn over black, as a gray bitmap without alpha would show it:
    // premultiplied colour is exactly that.
    QImage pixels = image;
    if (pixels.format() != QImage::Format_RGB32 && pixels.format() != QImage::Format_ARGB32_Premultiplied)
        pixels = pixels.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (pixels.isNull()) return std::nullopt;

    const LuminanceTables& tables = luminanceTables();
    const auto columns = coverageAlong(pixels.width());
    const auto rows = coverageAlong(pixels.height());
    std::array<double, byteCount> cells {};
    std::array<double, gridSize> rowCells {};
    for (int y = 0; y < pixels.height(); ++y) {
        rowCells.fill(0.0);
        const auto* line = reinterpret_cast<const QRgb*>(pixels.constScanLine(y));
        for (int x = 0; x < pixels.width(); ++x) {
            const QRgb rgb = line[x];
            const float luminance = tables.red[qRed(rgb)] + tables.green[qGreen(rgb)] + tables.blue[qBlue(rgb)];
            for (const Coverage& c : columns[static_cast<size_t>(x)])
                rowCells[static_cast<size_t>(c.cell)] += c.weight * luminance;
        }
        for (const Coverage& r : rows[static_cast<size_t>(y)])
            for (int cx = 0; cx < gridSize; ++cx)
                cells[static_cast<size_t>(r.cell * gridSize + cx)] += r.weight * rowCells[static_cast<size_t>(cx)];
    }

    // Each cell's weights add up to one cell area, so the sums are already averages.
    QByteArray signature(byteCount, '\0');
    for (int i = 0; i < byteCount; ++i) {
        const long value = std::lround(cells[static_cast<size_t>(i)] * 255.0);
        signature[i] = static_cast<char>(static_cast<unsigned char>(std::clamp(value, 0L, 255L)));
    }
    return signature;
}

bool isValid(const QByteArray& signature)
{
    return signature.size() == byteCount;
}

double difference(const QByteArray& reference, const QByteArray& live)
{
    if (!isValid(reference) || !isValid(live)) return 0.0;
    int sum = 0;
    for (int i = 0; i < byteCount; ++i)
        sum += std::abs(static_cast<int>(static_cast<unsigned char>(reference[i]))
            - static_cast<int>(static_cast<unsigned char>(live[i])));
    return static_cast<double>(sum);
}

double threshold(AreaSensitivity sensitivity)
{
    switch (sensitivity) {
    case AreaSensitivity::low:
        return 6000.0;
    case AreaSensitivity::medium:
        return 2500.0;
    case AreaSensitivity::high:
        return 900.0;
    }
    return 2500.0;
}

} // namespace AreaSignature

#pragma once

#include <QByteArray>
#include <QImage>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

// The area signature as first written: every pixel converted to floating-point linear light and
// spread over the cells it covers with floating-point weights. Signatures stored in users'
// settings were made this way, so the integer version must give the same bytes; the tests check
// that and the benchmark measures against it.
namespace PlainSignature {

inline std::optional<QByteArray> downsample(const QImage& image)
{
    constexpr int grid = 16;
    if (image.isNull() || image.width() <= 0 || image.height() <= 0) return std::nullopt;
    QImage pixels = image;
    if (pixels.format() != QImage::Format_RGB32 && pixels.format() != QImage::Format_ARGB32_Premultiplied)
        pixels = pixels.convertToFormat(QImage::Format_ARGB32_Premultiplied);

    static const auto tables = [] {
        std::array<std::array<float, 256>, 3> t {};
        for (int i = 0; i < 256; ++i) {
            const double c = i / 255.0;
            const double linear = c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
            t[0][size_t(i)] = float(0.2126 * linear);
            t[1][size_t(i)] = float(0.7152 * linear);
            t[2][size_t(i)] = float(0.0722 * linear);
        }
        return t;
    }();
    struct Coverage {
        int cell;
        float weight;
    };
    auto coverageAlong = [](int length) {
        std::vector<std::vector<Coverage>> result(static_cast<size_t>(length));
        const double scale = double(grid) / length;
        for (int p = 0; p < length; ++p) {
            const double start = p * scale;
            const double end = (p + 1) * scale;
            for (int cell = int(start); cell < grid && cell < end; ++cell) {
                const double overlap = std::min(end, cell + 1.0) - std::max(start, double(cell));
                if (overlap > 0) result[size_t(p)].push_back({ cell, float(overlap) });
            }
        }
        return result;
    };

    const auto columns = coverageAlong(pixels.width());
    const auto rows = coverageAlong(pixels.height());
    std::array<double, grid * grid> cells {};
    std::array<double, grid> rowCells {};
    for (int y = 0; y < pixels.height(); ++y) {
        rowCells.fill(0.0);
        const auto* line = reinterpret_cast<const QRgb*>(pixels.constScanLine(y));
        for (int x = 0; x < pixels.width(); ++x) {
            const QRgb rgb = line[x];
            const float luminance
                = tables[0][size_t(qRed(rgb))] + tables[1][size_t(qGreen(rgb))] + tables[2][size_t(qBlue(rgb))];
            for (const Coverage& c : columns[size_t(x)])
                rowCells[size_t(c.cell)] += c.weight * luminance;
        }
        for (const Coverage& r : rows[size_t(y)])
            for (int cx = 0; cx < grid; ++cx)
                cells[size_t(r.cell * grid + cx)] += r.weight * rowCells[size_t(cx)];
    }
    QByteArray signature(grid * grid, '\0');
    for (int i = 0; i < grid * grid; ++i)
        signature[i] = char(std::clamp(std::lround(cells[size_t(i)] * 255.0), 0L, 255L));
    return signature;
}

} // namespace PlainSignature

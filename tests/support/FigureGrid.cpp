#include "support/FigureGrid.h"

namespace FigureGrid {

namespace {

constexpr int cellWidth = 320;
constexpr int rowHeight = 108;

} // namespace

QRectF areaOf(int row, int column)
{
    const int top = row * rowHeight + 20;
    return QRectF(column * cellWidth + 6, top - 10, cellWidth - 12, sizes[size_t(column)] * 1.5 + 20);
}

bool make(const QString& path, const QString& font, const QString& background, const QString& ink)
{
    QList<DrawnText> texts;
    for (int row = 0; row < int(figures.size()); ++row)
        for (int column = 0; column < int(sizes.size()); ++column)
            texts << DrawnText { QString::fromUtf8(figures[size_t(row)].text), font, sizes[size_t(column)], ink,
                QString::number(column * cellWidth + 16), QString::number(row * rowHeight + 20), {} };
    return makeDrawnTextClip(path, clipSize, background, 0.5, texts);
}

} // namespace FigureGrid

#include "monitor/ArmedFramePicture.h"

#include "monitor/ArmedFrameDrawing.h"

#include <QPainter>
#include <QSemaphore>
#include <QThreadPool>

#include <cstring>

ArmedFramePicture::ArmedFramePicture(
    QSize size, const QRectF& watched, AreaOverlayStyle style, QImage under, QImage canvas)
    : watched(watched)
    , style(style)
    , still(size, QImage::Format_ARGB32_Premultiplied)
    , picture(canvas.size() == size && canvas.format() == QImage::Format_ARGB32_Premultiplied
              ? std::move(canvas)
              : QImage(size, QImage::Format_ARGB32_Premultiplied))
    , frameBand(ArmedFrameDrawing::paintedRegion(watched).intersected(QRect(QPoint(), size)))
{
    if (!under.isNull() && under.size() == size)
        this->under = std::move(under).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
}

QRegion ArmedFramePicture::changesAt(double seconds) const
{
    if (!shown || ArmedFrameDrawing::stillChanges(style, *shown, seconds)) return frameBand;
    if (seconds == *shown) return {};
    return (ArmedFrameDrawing::movingParts(watched, style, *shown)
        + ArmedFrameDrawing::movingParts(watched, style, seconds))
        .intersected(frameBand);
}

double ArmedFramePicture::nextChange(double seconds, double interval) const
{
    if (ArmedFrameDrawing::hasMovingParts(style)) return seconds + interval;
    return ArmedFrameDrawing::nextStillChange(style, seconds);
}

void ArmedFramePicture::paint(double seconds, const QRegion& region)
{
    shown = seconds;
    if (region.isEmpty()) return;
    if (redrawsStillAt(seconds)) {
        stillAt = seconds;
        copy(under, still, frameBand);
        const auto drawStill = [&] {
            QPainter painter(&still);
            ArmedFrameDrawing::drawStill(painter, watched, style, seconds);
        };
        // Qt's raster engine splits a fill of many rows across the global thread pool and waits for
        // the pieces, unless it already runs on one of that pool's threads: those hand-offs cost
        // more than the painting, so the whole band is drawn on one pool thread (here, when the
        // pool has none free).
        QSemaphore done;
        if (QThreadPool::globalInstance()->tryStart([&] {
                drawStill();
                done.release();
            }))
            done.acquire();
        else
            drawStill();
    }
    copy(still, picture, region);
    if (!ArmedFrameDrawing::hasMovingParts(style)) return;
    // The lights are cheap to draw, and drawn sixty times a second: in stripes of a few rows, which
    // Qt's raster engine paints on this thread rather than splitting them across its thread pool
    // and waiting for the pieces.
    constexpr int stripe = 48;
    const QRegion lit = region.intersected(ArmedFrameDrawing::movingParts(watched, style, seconds));
    QPainter painter(&picture);
    const QRect bounds = lit.boundingRect();
    for (int top = bounds.top(); top <= bounds.bottom(); top += stripe) {
        const QRegion part = lit.intersected(QRect(bounds.left(), top, bounds.width(), stripe));
        if (part.isEmpty()) continue;
        painter.setClipRegion(part);
        ArmedFrameDrawing::drawMoving(painter, watched, style, seconds);
    }
}

bool ArmedFramePicture::redrawsStillAt(double seconds) const
{
    return !stillAt || ArmedFrameDrawing::stillChanges(style, *stillAt, seconds);
}

void ArmedFramePicture::copy(const QImage& from, QImage& to, const QRegion& region)
{
    // Row by row: a plain copy, where a painter would hand tall copies to other threads and wait.
    for (const QRect& rect : region) {
        const size_t bytes = size_t(rect.width()) * 4;
        const qsizetype offset = qsizetype(rect.left()) * 4;
        for (int y = rect.top(); y <= rect.bottom(); ++y) {
            uchar* row = to.scanLine(y) + offset;
            if (from.isNull())
                std::memset(row, 0, bytes);
            else
                std::memcpy(row, from.constScanLine(y) + offset, bytes);
        }
    }
}

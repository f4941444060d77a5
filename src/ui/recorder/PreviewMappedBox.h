#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

#include <optional>

// Where a rectangle of the screen (global display space) lies on the preview of the captured
// source: the source of `sourceSize` at `sourceOrigin` is fitted into `box` with its aspect kept
// and centred, and the rectangle goes with it. None when the source or the box has no size.
std::optional<QRectF> previewMappedBox(const QRectF& rect, QSizeF sourceSize, QPointF sourceOrigin, QSizeF box);

#pragma once

#include "core/SettingsEnums.h"

#include <QPainterPath>
#include <QRectF>
#include <QSizeF>

// Where the camera overlay stands on a picture, one rule for the recorder that burns it in and for
// the bubble on the preview, so that the preview shows it where it will be recorded.
//
// Coordinates have their origin at the top left, y downward, in the canvas's own units.

// The overlay's rectangle on a canvas of `canvas`: its centre at `positionX` of the width and
// `positionY` of the height from the top left; its shorter side `sizeFrac` of the canvas's shorter
// side, the longer one that times the shape's aspect (a rectangle bubble is wide). Nothing keeps it
// inside the canvas: a centre near an edge leaves part of it outside.
QRectF cameraOverlayRect(QSizeF canvas, double positionX, double positionY, double sizeFrac, CameraShape shape);

// The corner radius of an overlay whose shorter side is `base`: half of it for a circle.
double cameraCornerRadius(double base, CameraShape shape);

// The outline of a bubble of `shape` filling `rect`: the ellipse in it for a circle, else its corners
// rounded by a fraction of its shorter side. It runs from the top-left along the top edge first,
// clockwise on a y-down canvas.
QPainterPath cameraBubblePath(const QRectF& rect, CameraShape shape);

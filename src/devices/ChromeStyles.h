#pragma once

#include "core/SettingsEnums.h"

#include <QRectF>

class QPainter;

// The twelve camera frame styles, drawn once for both looks: a recording's, laid out with y upward,
// and the live bubble's, with y downward and its own line widths and shadows. ChromeDrawer and
// CameraFrameChrome are its two faces.
namespace ChromeStyles {

enum class Look { recording, live };

// Draws `style` around `rect` in the painter's present coordinates. For the recording's look the
// caller has turned y upward already; the LIVE pill's text is set upright whatever the transform.
void draw(QPainter& painter, const QRectF& rect, CameraShape shape, CameraFrameStyle style, double t, Look look);

} // namespace ChromeStyles

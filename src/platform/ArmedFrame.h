#pragma once

#include "core/SettingsEnums.h"

#include <QRectF>

// The frame on the screen that says the area monitor is armed: a status light that takes no
// input and that neither the monitor nor the recorder reads.
//
// Main thread.
class ArmedFrame {
public:
    virtual ~ArmedFrame() = default;
    // Replaces any frame by one around `globalRect` (global display space), its animation starting
    // from the beginning.
    virtual void show(const QRectF& globalRect, AreaOverlayStyle style) = 0;
    // Removes the frame and stops its animation.
    virtual void dismiss() = 0;
};

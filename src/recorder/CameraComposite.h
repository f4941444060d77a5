#pragma once

#include "core/SettingsEnums.h"

#include <QImage>

#include <optional>

// The camera overlay of one frame, made afresh for every frame by the recorder's camera provider:
// the newest camera picture, where the overlay goes and how it looks.
struct CameraComposite {
    QImage image; // the newest camera picture
    double positionX = 0; // the overlay's centre, as a fraction of the width from the left
    double positionY = 0; // the overlay's centre, as a fraction of the height from the top
    double sizeFrac = 0; // the overlay's shorter side, as a fraction of the picture's shorter side
    CameraShape shape = CameraShape::circle; // its aspect, its corners and its chrome
    std::optional<CameraFrameStyle> frameStyle; // the chrome; none: no chrome
};

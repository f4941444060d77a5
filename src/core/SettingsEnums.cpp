#include "core/SettingsEnums.h"

int framesPerSecond(FrameRate rate)
{
    switch (rate) {
    case FrameRate::fps24:
        return 24;
    case FrameRate::fps30:
        return 30;
    case FrameRate::fps60:
        return 60;
    case FrameRate::fps120:
        return 120;
    }
    return 60;
}

FrameRate frameRateFromStoredInteger(long long stored)
{
    switch (stored) {
    case 24:
        return FrameRate::fps24;
    case 30:
        return FrameRate::fps30;
    case 120:
        return FrameRate::fps120;
    default:
        return FrameRate::fps60;
    }
}

std::optional<int> targetHeight(Resolution resolution)
{
    switch (resolution) {
    case Resolution::res720:
        return 720;
    case Resolution::res1080:
        return 1080;
    case Resolution::res1440:
        return 1440;
    case Resolution::res2160:
        return 2160;
    case Resolution::native:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<QualityPreset> qualityPreset(QualityMode mode)
{
    switch (mode) {
    case QualityMode::manual:
        return std::nullopt;
    case QualityMode::discord:
        return QualityPreset { Resolution::native, FrameRate::fps30, 3.0 };
    case QualityMode::social:
        return QualityPreset { Resolution::native, FrameRate::fps30, 12.0 };
    case QualityMode::studio:
        return QualityPreset { Resolution::native, FrameRate::fps60, 60.0 };
    }
    return std::nullopt;
}

double cameraAspect(CameraShape shape)
{
    return shape == CameraShape::rect ? 16.0 / 9.0 : 1.0;
}

double cameraCornerFraction(CameraShape shape)
{
    switch (shape) {
    case CameraShape::circle:
        return 0.5;
    case CameraShape::roundedRect:
        return 0.18;
    case CameraShape::rect:
        return 0.04;
    }
    return 0.18;
}

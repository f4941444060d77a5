#include "media/ScreenQuality.h"

#include <algorithm>
#include <cmath>

namespace ScreenQuality {

double crf(int64_t bitRate, int width, int height, int fps)
{
    // The default's bits a pixel: 20 Mb/s over 1920x1080 at 30 pictures a second.
    constexpr double referenceBitsPerPixel = 20e6 / (1920.0 * 1080.0 * 30.0);
    constexpr double referenceCrf = 23;
    const double pixelsPerSecond = double(std::max(1, width)) * double(std::max(1, height)) * double(std::max(1, fps));
    const double bitsPerPixel = double(std::max<int64_t>(1, bitRate)) / pixelsPerSecond;
    const double value = referenceCrf - 6.0 * std::log2(bitsPerPixel / referenceBitsPerPixel);
    return std::clamp(std::round(value * 10) / 10, finest, coarsest);
}

} // namespace ScreenQuality

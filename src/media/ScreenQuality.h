#pragma once

#include <cstdint>

// The quality a screen is encoded at, from the bit rate the user chose. The bit rate is a ceiling,
// not a level to fill, so that a still desktop costs no bits; but a higher bit rate still means a
// crisper picture: the quality follows the bits each pixel may have. 20 Mb/s for 1080p30, the
// default, is CRF 23; each doubling of the bits a pixel is one step of 6 finer, as x265 counts.
//
// Pure.
namespace ScreenQuality {

constexpr double finest = 14; // beyond this the bits buy nothing a screen shows
constexpr double coarsest = 32; // below a bit rate this low the ceiling decides anyway

// x265's constant rate factor for pictures of `width` x `height` at `fps` and at most `bitRate`
// bits a second.
double crf(int64_t bitRate, int width, int height, int fps);

} // namespace ScreenQuality

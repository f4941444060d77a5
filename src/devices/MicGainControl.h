#pragma once

#include "media/MediaSample.h"

#include <cstddef>
#include <cstdint>

// The microphone's automatic gain control: levels a buffer in place so that a voice has about the
// same loudness whatever the microphone. One gain for the whole buffer (all channels), smoothed
// once per buffer: it falls within a few loud buffers and creeps back up over hundreds of quiet
// ones. Buffers quieter than a noise gate leave a gain of 1 or less alone and let a higher one
// sink toward 1. A soft knee in front of full scale keeps the result from ever wrapping or
// clipping hard.
//
// Pure: no allocation, no state but the gain the caller keeps (one per opened device).
namespace MicGainControl {

struct State {
    double gain = 1.0;
};

inline constexpr double targetFloat = 0.7;
inline constexpr double targetInt16 = 23000.0;
inline constexpr double minGain = 0.25;
inline constexpr double maxGain = 4.0;
inline constexpr double attackAlpha = 0.35;
inline constexpr double releaseAlpha = 0.0025;
inline constexpr double noiseGateFloat = 0.01;
inline constexpr double noiseGateInt16 = 330.0;

// The gain after a buffer whose largest magnitude is `peak`, measured against `target` and `gate`
// in the buffer's own units.
double nextGain(double gain, double peak, double target, double gate);

void apply(float* samples, size_t count, State& state);
void apply(int16_t* samples, size_t count, State& state);
// Either path by the buffer's format.
void apply(AudioBuffer& buffer, State& state);

} // namespace MicGainControl

#include "devices/MicGainControl.h"

#include <algorithm>
#include <cmath>

namespace MicGainControl {

namespace {

constexpr float kneeFloat = 0.85f;
constexpr float kneeRangeFloat = 0.1f;
constexpr float kneeSoftnessFloat = 0.15f;
constexpr double kneeInt16 = 30000.0;
constexpr double kneeRangeInt16 = 2600.0;
constexpr double kneeSoftnessInt16 = 4000.0;

} // namespace

double nextGain(double gain, double peak, double target, double gate)
{
    if (peak < gate) {
        // Silence must not pump the gain up: a gain above unity sinks toward it, anything else stays.
        if (gain <= 1.0) return gain;
        return 1.0 * attackAlpha + gain * (1.0 - attackAlpha);
    }
    const double wanted = std::clamp(target / peak, minGain, maxGain);
    const double alpha = wanted < gain ? attackAlpha : releaseAlpha;
    return wanted * alpha + gain * (1.0 - alpha);
}

void apply(float* samples, size_t count, State& state)
{
    float peak = 0.0f;
    for (size_t i = 0; i < count; ++i)
        peak = std::max(peak, std::fabs(samples[i]));
    state.gain = nextGain(state.gain, peak, targetFloat, noiseGateFloat);
    const auto gain = float(state.gain);
    for (size_t i = 0; i < count; ++i) {
        float v = samples[i] * gain;
        const float m = std::fabs(v);
        if (m > kneeFloat) {
            const float bent = kneeFloat + kneeRangeFloat * (1.0f - std::exp(-(m - kneeFloat) / kneeSoftnessFloat));
            v = std::copysign(bent, v);
        }
        samples[i] = std::clamp(v, -1.0f, 1.0f);
    }
}

void apply(int16_t* samples, size_t count, State& state)
{
    int peak = 0;
    for (size_t i = 0; i < count; ++i)
        peak = std::max(peak, std::abs(int(samples[i]))); // -32768 counts as 32768
    state.gain = nextGain(state.gain, double(peak), targetInt16, noiseGateInt16);
    const double gain = state.gain;
    for (size_t i = 0; i < count; ++i) {
        double v = samples[i] * gain;
        const double m = std::fabs(v);
        if (m > kneeInt16) {
            const double bent = kneeInt16 + kneeRangeInt16 * (1.0 - std::exp(-(m - kneeInt16) / kneeSoftnessInt16));
            v = std::copysign(bent, v);
        }
        samples[i] = int16_t(std::trunc(std::clamp(v, -32768.0, 32767.0)));
    }
}

void apply(AudioBuffer& buffer, State& state)
{
    if (buffer.format == AudioBuffer::SampleFormat::Float32) {
        const auto count = size_t(buffer.data.size()) / sizeof(float);
        apply(reinterpret_cast<float*>(buffer.data.data()), count, state);
    } else {
        const auto count = size_t(buffer.data.size()) / sizeof(int16_t);
        apply(reinterpret_cast<int16_t*>(buffer.data.data()), count, state);
    }
}

} // namespace MicGainControl

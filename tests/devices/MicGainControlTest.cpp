#include "devices/MicGainControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

// The microphone's gain control as a user hears it: quiet speech comes up to the target, loud
// speech is pulled down fast and recovers slowly, room noise is left alone, and nothing wraps.
namespace {

constexpr int rate = 48000;
constexpr int bufferFrames = 960; // 20 ms, as the sound server delivers them

std::vector<float> sine(double amplitude, int frames = bufferFrames, double frequency = 440)
{
    std::vector<float> out(static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i)
        out[size_t(i)] = float(amplitude * std::sin(2 * M_PI * frequency * i / rate));
    return out;
}

std::vector<int16_t> sine16(double amplitude, int frames = bufferFrames)
{
    std::vector<int16_t> out(static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i)
        out[size_t(i)] = int16_t(std::lround(amplitude * std::sin(2 * M_PI * 440 * i / rate)));
    return out;
}

template <typename T> double peak(const std::vector<T>& v)
{
    double p = 0;
    for (T s : v)
        p = std::max(p, std::fabs(double(s)));
    return p;
}

// Runs `buffers` copies of `input` through the control; the peak of the last output.
template <typename T> double run(const std::vector<T>& input, int buffers, MicGainControl::State& state)
{
    std::vector<T> b;
    for (int i = 0; i < buffers; ++i) {
        b = input;
        MicGainControl::apply(b.data(), b.size(), state);
    }
    return peak(b);
}

} // namespace

TEST(MicGainControl, QuietFloatSpeechRisesSlowlyTowardTheTargetAndNeverPastTheLargestGain)
{
    MicGainControl::State state;
    std::vector<float> b = sine(0.35);
    MicGainControl::apply(b.data(), b.size(), state);
    // Wanted 2.0, but the gain creeps: one buffer moves it a quarter of a percent of the way.
    EXPECT_NEAR(state.gain, 1.0025, 1e-9);
    EXPECT_NEAR(peak(b), 0.35 * 1.0025, 1e-4);

    // After ten seconds of it the voice is close to the target, and stays below it.
    const double after = run(sine(0.35), 700, state);
    EXPECT_GT(after, 0.62);
    EXPECT_LE(after, 0.7 + 1e-4);

    // A whisper wants 35 times louder but gets at most 4.
    MicGainControl::State whisper { 3.9 };
    run(sine(0.02), 3000, whisper);
    EXPECT_NEAR(whisper.gain, 4.0, 1e-3);
    EXPECT_LE(whisper.gain, 4.0);
}

TEST(MicGainControl, LoudSpeechIsPulledDownWithinAFewBuffersAndRecoversOverHundreds)
{
    MicGainControl::State state { 2.0 };
    std::vector<float> b = sine(1.0);
    MicGainControl::apply(b.data(), b.size(), state);
    EXPECT_NEAR(state.gain, 1.545, 1e-9);
    // The knee holds a sample pushed past full scale to below it, keeping its sign.
    EXPECT_LT(peak(b), 0.95f + 1e-6);
    EXPECT_GT(peak(b), 0.9);
    EXPECT_LT(*std::min_element(b.begin(), b.end()), -0.9f);

    // Attack: within ten buffers the gain is near the 0.7 that a full-scale voice wants.
    run(sine(1.0), 9, state);
    EXPECT_LT(state.gain, 0.72);

    // Release: back to a quiet voice, a second later the gain has barely moved.
    const double low = state.gain;
    run(sine(0.2), 50, state);
    EXPECT_GT(state.gain, low);
    EXPECT_LT(state.gain, low + 0.5);
    run(sine(0.2), 2000, state);
    EXPECT_GT(state.gain, 3.0);
}

TEST(MicGainControl, SilenceUnderTheGateLeavesAUnityOrLowerGainAloneAndLetsAHighOneSink)
{
    MicGainControl::State low { 0.6 };
    std::vector<float> hiss = sine(0.005);
    const std::vector<float> original = hiss;
    MicGainControl::apply(hiss.data(), hiss.size(), low);
    EXPECT_EQ(low.gain, 0.6);
    for (size_t i = 0; i < hiss.size(); ++i)
        EXPECT_FLOAT_EQ(hiss[i], original[i] * 0.6f);

    MicGainControl::State high { 3.0 };
    MicGainControl::apply(hiss.data(), hiss.size(), high);
    EXPECT_NEAR(high.gain, 2.3, 1e-9);

    // An empty buffer counts as silent and writes nothing.
    MicGainControl::State empty { 0.8 };
    MicGainControl::apply(static_cast<float*>(nullptr), 0, empty);
    EXPECT_EQ(empty.gain, 0.8);
}

TEST(MicGainControl, SixteenBitSamplesFollowTheSameRulesWithoutWrappingAtFullScale)
{
    // The gate: 329 is silence, 330 is not.
    MicGainControl::State a;
    std::vector<int16_t> gate = { 0, 329, -200 };
    MicGainControl::apply(gate.data(), gate.size(), a);
    EXPECT_EQ(a.gain, 1.0);
    gate = { 0, 330, -200 };
    MicGainControl::apply(gate.data(), gate.size(), a);
    EXPECT_GT(a.gain, 1.0);

    // The most negative sample, applied at unity gain, goes through the knee and does not wrap
    // round to positive. (The gain before is what full scale pulls down to exactly 1.)
    MicGainControl::State unity { (1.0 - 0.35 * 23000.0 / 32768.0) / 0.65 };
    std::vector<int16_t> edge = { -32768, 32767, 1000 };
    MicGainControl::apply(edge.data(), edge.size(), unity);
    EXPECT_NEAR(unity.gain, 1.0, 1e-12);
    EXPECT_EQ(edge[0], -31298);
    EXPECT_GT(edge[1], 31000);
    EXPECT_LE(edge[1], 32600);

    // A loud 16-bit voice at a high gain: pulled down fast, never wrapped, signs kept.
    MicGainControl::State loud { 4.0 };
    const std::vector<int16_t> input = sine16(30000);
    std::vector<int16_t> out = input;
    MicGainControl::apply(out.data(), out.size(), loud);
    EXPECT_LT(loud.gain, 3.0);
    for (size_t i = 0; i < out.size(); ++i) {
        EXPECT_LE(std::abs(int(out[i])), 32600) << i;
        if (std::abs(int(input[i])) > 100) {
            EXPECT_EQ(out[i] > 0, input[i] > 0) << i;
        }
    }
    run(input, 10, loud);
    EXPECT_LT(loud.gain, 0.82);

    // A quiet one rises toward 23000 and no further.
    MicGainControl::State quiet;
    EXPECT_LE(run(sine16(8000), 3000, quiet), 23000 + 2);
    EXPECT_GT(quiet.gain, 2.8);
}

TEST(MicGainControl, ABufferIsLevelledByItsFormat)
{
    AudioBuffer f;
    f.format = AudioBuffer::SampleFormat::Float32;
    const std::vector<float> loud = sine(1.0);
    f.data = QByteArray(reinterpret_cast<const char*>(loud.data()), qsizetype(loud.size() * sizeof(float)));
    MicGainControl::State fs { 2.0 };
    MicGainControl::apply(f, fs);
    EXPECT_NEAR(fs.gain, 1.545, 1e-9);

    AudioBuffer s;
    s.format = AudioBuffer::SampleFormat::Int16;
    const std::vector<int16_t> quiet = sine16(11500);
    s.data = QByteArray(reinterpret_cast<const char*>(quiet.data()), qsizetype(quiet.size() * sizeof(int16_t)));
    MicGainControl::State ss;
    MicGainControl::apply(s, ss);
    EXPECT_NEAR(ss.gain, 1.0025, 1e-6);
}

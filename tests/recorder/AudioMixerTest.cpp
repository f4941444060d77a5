#include "recorder/AudioMixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

// The mix as a player hears it: both inputs at their own rates and buffer sizes come out as one
// continuous track, each at the time it was captured, never clipping; a stalled input leaves a
// hole, never a shift.
namespace {

using Input = AudioMixer::Input;
constexpr int64_t origin = 7'000'000'000'000; // capture clock of the first sample, ns
constexpr int rate = AudioMixer::sampleRate;

// One input: `signal(t)` (seconds since origin) sampled at `sampleRate` in buffers of `frames`.
struct Source {
    AudioBuffer::SampleFormat format;
    int sampleRate;
    int channels;
    int frames;
    std::function<double(double)> signal;
    int64_t next = 0; // index of the next sample

    double nextTime() const { return double(next) / sampleRate; }
    AudioBuffer take()
    {
        AudioBuffer b;
        b.format = format;
        b.sampleRate = sampleRate;
        b.channels = channels;
        b.pts = MediaTime::fromNanoseconds(origin + next * 1'000'000'000 / sampleRate);
        for (int f = 0; f < frames; ++f) {
            const double v = signal(double(next + f) / sampleRate);
            for (int c = 0; c < channels; ++c) {
                if (format == AudioBuffer::SampleFormat::Float32) {
                    const auto s = float(v);
                    b.data.append(reinterpret_cast<const char*>(&s), sizeof s);
                } else {
                    const auto s = int16_t(std::lround(v * 32767));
                    b.data.append(reinterpret_cast<const char*>(&s), sizeof s);
                }
            }
        }
        next += frames;
        return b;
    }
};

struct Mixed {
    std::vector<float> samples;
    int64_t start = -1; // position of samples[0]
    bool contiguous = true;
    AudioMixer mixer { [this](const AudioBuffer& b) { add(b); } };

    void add(const AudioBuffer& b)
    {
        EXPECT_EQ(b.format, AudioBuffer::SampleFormat::Float32);
        EXPECT_EQ(b.sampleRate, rate);
        EXPECT_EQ(b.channels, 1);
        const int64_t at = AudioMixer::positionOf(b.pts);
        if (start < 0) start = at;
        if (at != start + int64_t(samples.size())) contiguous = false;
        const auto* s = reinterpret_cast<const float*>(b.data.constData());
        samples.insert(samples.end(), s, s + b.frameCount());
    }
    int64_t end() const { return start + int64_t(samples.size()); }
    // Where `seconds` after the origin lies in `samples`.
    int64_t index(double seconds) const
    {
        return AudioMixer::positionOf(MediaTime::fromNanoseconds(origin)) + std::llround(seconds * rate) - start;
    }
    // The amplitude of `frequency` over [from, to) seconds after the origin.
    double amplitude(double frequency, double from, double to) const
    {
        double re = 0, im = 0;
        const int64_t a = std::max<int64_t>(0, index(from)), b = std::min<int64_t>(int64_t(samples.size()), index(to));
        for (int64_t i = a; i < b; ++i) {
            re += samples[size_t(i)] * std::cos(2 * M_PI * frequency * double(i) / rate);
            im += samples[size_t(i)] * std::sin(2 * M_PI * frequency * double(i) / rate);
        }
        return b > a ? 2 * std::hypot(re, im) / double(b - a) : 0;
    }
    // The position of the largest magnitude in [from, to) seconds, in seconds after the origin.
    double peakAt(double from, double to) const
    {
        int64_t best = index(from);
        for (int64_t i = index(from); i < index(to); ++i)
            if (std::fabs(samples[size_t(i)]) > std::fabs(samples[size_t(best)])) best = i;
        return double(best - index(0)) / rate;
    }
};

double tone(double frequency, double amplitude, double t)
{
    return amplitude * std::sin(2 * M_PI * frequency * t);
}

// A click: one loud sample at `at` on a silent line.
std::function<double(double)> click(double at, int sampleRate)
{
    return [at, sampleRate](
               double t) { return std::llround(t * sampleRate) == std::llround(at * sampleRate) ? 0.9 : 0.0; };
}

} // namespace

TEST(AudioMixer, TwoLoudInputsAtTheirOwnRatesBecomeOneContinuousTrackThatNeverClips)
{
    Mixed out;
    Source system { AudioBuffer::SampleFormat::Float32, 48000, 2, 480, [](double t) { return tone(1000, 0.9, t); } };
    Source mic { AudioBuffer::SampleFormat::Int16, 16000, 1, 320, [](double t) { return tone(440, 0.9, t); } };
    while (system.nextTime() < 2.0 || mic.nextTime() < 2.0) {
        if (system.nextTime() <= mic.nextTime())
            out.mixer.push(Input::system, system.take());
        else
            out.mixer.push(Input::microphone, mic.take());
    }
    EXPECT_TRUE(out.contiguous);
    EXPECT_EQ(out.start, AudioMixer::positionOf(MediaTime::fromNanoseconds(origin)));
    EXPECT_GT(out.end() - out.start, int64_t(rate * 1.95));
    float peak = 0;
    for (float s : out.samples)
        peak = std::max(peak, std::fabs(s));
    EXPECT_LE(peak, AudioMixer::ceiling + 1e-6f);
    // Both tones are there, each near its own level once the limiter has settled; nothing else is.
    EXPECT_GT(out.amplitude(1000, 0.5, 1.9), 0.4);
    EXPECT_GT(out.amplitude(440, 0.5, 1.9), 0.4);
    EXPECT_LT(out.amplitude(700, 0.5, 1.9), 0.05);

    // One input alone at the track's rate is passed through untouched and at once.
    Mixed alone;
    Source voice { AudioBuffer::SampleFormat::Int16, rate, 1, 441, [](double t) { return tone(300, 0.5, t); } };
    const AudioBuffer b = voice.take();
    alone.mixer.push(Input::microphone, b);
    ASSERT_EQ(alone.samples.size(), 441u);
    const auto* in = reinterpret_cast<const int16_t*>(b.data.constData());
    for (size_t i = 0; i < 441; ++i)
        ASSERT_FLOAT_EQ(alone.samples[i], float(in[i]) / 32768.0f) << i;
}

TEST(AudioMixer, EachInputLandsAtItsCaptureTimeWhateverItsBuffersAndArrival)
{
    Mixed out;
    Source system { AudioBuffer::SampleFormat::Float32, 48000, 2, 480, click(0.7, 48000) };
    Source mic { AudioBuffer::SampleFormat::Int16, 44100, 1, 1411, click(0.3, 44100) };
    // The system's buffers arrive up to 150 ms ahead of the microphone's.
    while (mic.nextTime() < 1.5) {
        if (system.nextTime() < mic.nextTime() + 0.15)
            out.mixer.push(Input::system, system.take());
        else
            out.mixer.push(Input::microphone, mic.take());
    }
    EXPECT_TRUE(out.contiguous);
    EXPECT_NEAR(out.peakAt(0.0, 0.5), 0.3, 1.5 / rate);
    EXPECT_NEAR(out.peakAt(0.5, 1.0), 0.7, 1.5 / rate);
}

TEST(AudioMixer, AStalledOrEndedInputGivesSilenceWhileTheOtherGoesOnUnshifted)
{
    Mixed out;
    Source system { AudioBuffer::SampleFormat::Float32, 48000, 2, 960, [](double t) { return tone(1000, 0.3, t); } };
    Source mic { AudioBuffer::SampleFormat::Float32, 44100, 1, 882, [](double t) {
                    return tone(440, 0.3, t) + (std::llround(t * 44100) == std::llround(2.5 * 44100) ? 0.6 : 0.0);
                } };
    auto runUntil = [&](double seconds, bool micDelivers) {
        while (system.nextTime() < seconds) {
            out.mixer.push(Input::system, system.take());
            while (micDelivers && mic.nextTime() < system.nextTime())
                out.mixer.push(Input::microphone, mic.take());
        }
    };
    runUntil(1.0, true);
    // The microphone stalls for a second: the mix waits for it no longer than it may.
    runUntil(2.0, false);
    EXPECT_GE(out.end(), out.index(2.0) + out.start - AudioMixer::maxWaitSamples - 960);
    // Its buffers of the stalled stretch come late and are dropped; then it delivers on time again.
    while (mic.nextTime() < 2.0)
        out.mixer.push(Input::microphone, mic.take());
    runUntil(3.0, true);
    EXPECT_TRUE(out.contiguous);
    EXPECT_GT(out.amplitude(440, 0.2, 0.9), 0.25);
    EXPECT_LT(out.amplitude(440, 1.1, 1.7), 0.02);
    EXPECT_GT(out.amplitude(1000, 1.1, 1.7), 0.25);
    EXPECT_GT(out.amplitude(440, 2.1, 2.9), 0.25);
    // The microphone's click is where it was captured, not a stall later.
    EXPECT_NEAR(out.peakAt(2.1, 2.9), 2.5, 1.5 / rate);

    // The microphone is switched off: from then on the system audio is mixed the moment it comes.
    out.mixer.endInput(Input::microphone);
    out.mixer.push(Input::system, system.take());
    EXPECT_EQ(
        out.end(), AudioMixer::positionOf(MediaTime::fromNanoseconds(origin + system.next * 1'000'000'000 / 48000)));
}

TEST(AudioMixer, AnInputDeliveredAheadOfTheClockWaitsForItsMomentAndPushesNothingOut)
{
    // The microphone renders two seconds ahead and delivers them at once; the system audio comes
    // in real time, the clock moving with it.
    Mixed out;
    Source system { AudioBuffer::SampleFormat::Float32, 48000, 2, 960, [](double t) { return tone(1000, 0.3, t); } };
    Source mic { AudioBuffer::SampleFormat::Float32, 44100, 1, 4410, [](double t) { return tone(440, 0.3, t); } };
    while (system.nextTime() < 6.0) {
        const auto now = MediaTime::fromNanoseconds(origin + int64_t(system.nextTime() * 1e9));
        out.mixer.advanceClock(now);
        while (mic.nextTime() < system.nextTime() + 2.0)
            out.mixer.push(Input::microphone, mic.take());
        out.mixer.push(Input::system, system.take());
        ASSERT_LE(out.end(), AudioMixer::positionOf(now));
    }
    EXPECT_TRUE(out.contiguous);
    for (double from = 0.0; from < 5.5; from += 0.5) {
        EXPECT_GT(out.amplitude(1000, from, from + 0.5), 0.25) << from;
        EXPECT_GT(out.amplitude(440, from, from + 0.5), 0.25) << from;
    }
}

TEST(AudioMixer, SoundStampedFarBeyondTheClockIsRefusedAndHoldsNothing)
{
    // A source whose clock jumps an hour ahead for one buffer: held, it would be an hour of
    // silence in its lane. It is refused whole, and the sound goes on around it.
    Mixed out;
    Source system { AudioBuffer::SampleFormat::Float32, 48000, 2, 960, [](double t) { return tone(1000, 0.3, t); } };
    int refused = 0;
    while (system.nextTime() < 2.0) {
        out.mixer.advanceClock(MediaTime::fromNanoseconds(origin + int64_t(system.nextTime() * 1e9)));
        if (std::abs(system.nextTime() - 1.0) < 0.01) {
            AudioBuffer jump = system.take();
            system.next -= system.frames; // the real sound of that moment still comes
            jump.pts = jump.pts + MediaTime(3600, 1);
            EXPECT_EQ(out.mixer.push(Input::system, jump), AudioMixer::Pushed::tooFarAhead);
            ++refused;
        }
        EXPECT_EQ(out.mixer.push(Input::system, system.take()), AudioMixer::Pushed::taken);
    }
    EXPECT_EQ(refused, 1);
    // A repeat of a moment already taken is late.
    Source again = system;
    again.next -= again.frames;
    EXPECT_EQ(out.mixer.push(Input::system, again.take()), AudioMixer::Pushed::late);
    EXPECT_TRUE(out.contiguous);
    EXPECT_GT(out.amplitude(1000, 0.9, 1.1), 0.25);
    EXPECT_LT(out.end(), AudioMixer::positionOf(MediaTime::fromNanoseconds(origin + 2'100'000'000)));
}

#pragma once

#include "media/MediaSample.h"

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

// Mixes the microphone and the system audio into the one sound of the ring: mono float at the
// track's rate, each input placed on the capture clock by its own timestamps, so that both stay in
// step with the picture whatever their rates and buffer sizes.
//
// Each input is converted to mono (channels averaged) and resampled to the track's rate by linear
// interpolation that carries on across contiguous buffers. Its samples wait in a lane at their
// positions on the clock; the mix is summed up to where every input has delivered, then passed
// through a peak limiter so that two loud inputs never clip. An input that lags more than
// `maxWait` behind the other no longer holds the mix back: its missing stretch is silence and what
// it brings late for it is dropped, so a stalled or vanished device gives a hole, never a shift.
// An input that jumps (samples lost, a restart) starts again at its new time; a small overlap with
// what it gave before loses the overlapping head. Once told the time on the capture clock, the mix
// goes no further than it: a source that renders ahead of the clock (seconds of sound delivered at
// once) waits in its lane for its moment and pushes nothing of the other out as late. What lies
// more than `maxAheadSamples` beyond the clock is refused, so that a lane never holds more than a
// few seconds, whatever time stamps a source sends.
//
// Pure: no audio system, no threads. Not thread-safe (the ring calls it on its queue).
class AudioMixer {
public:
    enum class Input { system, microphone };

    static constexpr int sampleRate = 44100;
    // How far an input may fall behind the other before the mix goes on without it.
    static constexpr int64_t maxWaitSamples = sampleRate / 5;
    // How far beyond the capture clock a lane holds sound.
    static constexpr int64_t maxAheadSamples = 5 * sampleRate;
    // Buffers closer than this to where an input's last one ended continue it (clock jitter).
    static constexpr int64_t jitterSamples = sampleRate / 100;
    // The limiter's ceiling and the time it takes to give the gain back after a peak.
    static constexpr float ceiling = 0.99f;
    static constexpr double releaseSeconds = 0.05;

    using Output = std::function<void(const AudioBuffer&)>;
    // What became of a pushed buffer.
    enum class Pushed {
        taken, // also a buffer that carries nothing
        late, // it does not move past the input's last buffer: dropped whole
        tooFarAhead, // it ends more than maxAheadSamples beyond the clock: dropped whole
    };

    explicit AudioMixer(Output output);

    // A buffer of `input` in its own format and rate; whatever can be mixed now goes out.
    Pushed push(Input input, const AudioBuffer& buffer);
    // `input` has stopped: what it gave is mixed as the other goes on, and it holds nothing back.
    void endInput(Input input);
    // The capture clock has reached `time` (it never goes back): what can be mixed up to it goes out.
    void advanceClock(const MediaTime& time);

    // The track position of a capture time, rounded to the nearest sample.
    static int64_t positionOf(const MediaTime& time);

private:
    struct Lane {
        bool used = false; // has had a buffer
        bool active = false; // delivering: the mix waits for it, up to maxWait
        int64_t end = 0; // the position after the last sample it gave
        std::vector<float> pending; // its samples not mixed yet, the last one at end - 1
        // Resampling: where the next buffer would begin if it continues this one (in input
        // samples converted to the track's rate), the read position into the next buffer (input
        // samples, -1 meaning the last sample of the one before) and that last sample.
        double expectedPosition = 0;
        double readPosition = 0;
        float previous = 0;
        bool continuable = false;
        // The time of the last buffer taken: one that does not move past it is dropped whole,
        // even if it is longer (a second source, or a repeat).
        MediaTime lastPts = MediaTime::invalid();
        int64_t start() const { return end - int64_t(pending.size()); }
    };

    void mix();
    void deliver(int64_t from, std::vector<float>& samples);

    Output output;
    std::array<Lane, 2> lanes;
    bool started = false;
    int64_t mixedUntil = 0; // the first position not yet mixed
    int64_t clock = std::numeric_limits<int64_t>::max(); // the capture clock's position, once told
    float limiterGain = 1.0f;
    std::vector<float> mono; // scratch
};

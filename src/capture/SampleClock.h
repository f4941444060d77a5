#pragma once

#include <cstdint>
#include <optional>

// Stamps the buffers of an audio source on the capture clock with the time of their first sample.
// Times are counted on by samples, so a burst of buffers gets consecutive times however quickly it
// arrives, and a source that renders ahead keeps its samples in order. The count is set again from
// the clock only when the two have parted for a while, so that long recordings stay in step with
// the picture:
// - the count behind the clock by more than `tolerance` for `catchUpAfter`: samples were lost (a
//   suspended device, a server that dropped them). It jumps forward and the missing stretch is a
//   gap, never a shift of what follows;
// - the count ahead of the clock by more than `tolerance` for `fallBackAfter`: the source runs fast
//   or renders ahead of the clock. It falls back and loses the overlap with what it gave before,
//   but never to or before the last buffer's time.
// Each jump is by the smallest difference seen while they were apart: a delivery that was merely
// late (our thread stalled, the samples all there) or a burst delivered early leaves the times as
// they were.
//
// Pure: the caller brings the clock.
class SampleClock {
public:
    static constexpr int64_t toleranceNs = 50'000'000;
    static constexpr int64_t catchUpAfterNs = 250'000'000;
    static constexpr int64_t fallBackAfterNs = 3'000'000'000;

    explicit SampleClock(int sampleRate);

    // The time of the first sample of a buffer of `frames` samples. `latest` is the latest time that
    // sample can have been recorded: the clock at delivery less everything readable, in nanoseconds.
    int64_t stamp(int64_t latest, int64_t frames);
    // Samples the source reported lost: time moves on over them.
    void skip(int64_t frames);

private:
    enum class Apart { no, behind, ahead };

    int64_t nextTime() const;

    int rate;
    std::optional<int64_t> anchor; // the time of the counted samples' first one
    int64_t counted = 0;
    int64_t last = 0; // the time of the last buffer
    Apart apart = Apart::no;
    int64_t apartSince = 0; // the clock when the count and the clock parted
    int64_t closest = 0; // the smallest difference of clock less count since then
};

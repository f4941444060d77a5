#include "capture/SampleClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

constexpr int rate = 44100;
constexpr int64_t second = 1'000'000'000;

int64_t nanos(int64_t frames)
{
    return frames * second / rate;
}

// A source's deliveries: each buffer of `frames` samples reaches us at `arrival` on our clock.
struct Stamped {
    int64_t arrival, pts, frames;
};

// Stamps a run of deliveries the way PulseAudioSource does: the latest time a buffer can have
// begun is its arrival less its own length.
std::vector<Stamped> stampAll(SampleClock& clock, const std::vector<std::pair<int64_t, int64_t>>& deliveries)
{
    std::vector<Stamped> out;
    for (const auto& [arrival, frames] : deliveries)
        out.push_back({ arrival, clock.stamp(arrival - nanos(frames), frames), frames });
    return out;
}

// Where each buffer does not follow on from the one before: the jump, in ns.
std::vector<int64_t> jumps(const std::vector<Stamped>& s)
{
    std::vector<int64_t> out;
    for (size_t i = 1; i < s.size(); ++i)
        if (const int64_t d = s[i].pts - (s[i - 1].pts + nanos(s[i - 1].frames)); std::llabs(d) > 1) out.push_back(d);
    return out;
}

} // namespace

TEST(SampleClock, ABurstDeliveredAheadOfTheClockKeepsConsecutiveTimes)
{
    // A source that renders two seconds ahead, as the harness's sine source does: every 2 s its
    // next two seconds arrive at once, cut into pieces of 0.35 s.
    std::vector<std::pair<int64_t, int64_t>> deliveries;
    const int64_t piece = rate * 35 / 100;
    for (int64_t from = 0; from < 60 * rate;) {
        const int64_t burstEnd = (from / (2 * rate) + 1) * 2 * rate;
        const int64_t to = std::min((from / piece + 1) * piece, burstEnd);
        deliveries.emplace_back(10 * second + from / (2 * rate) * 2 * second, to - from);
        from = to;
    }
    SampleClock clock(rate);
    const std::vector<Stamped> stamped = stampAll(clock, deliveries);
    // The first piece begins the count and nothing ever moves it: with a count that gave way to
    // the clock at once, the pieces of each burst got almost one time and all but one were lost.
    EXPECT_EQ(stamped.front().pts, 10 * second - nanos(piece));
    EXPECT_EQ(jumps(stamped), std::vector<int64_t>());
}

TEST(SampleClock, ALateDeliveryKeepsItsTimesAndLostSamplesLeaveAGap)
{
    // A microphone delivering 20 ms at a time, in real time from t = 10 s.
    const int64_t piece = rate / 50;
    std::vector<std::pair<int64_t, int64_t>> deliveries;
    int64_t t = 10 * second;
    auto realTime = [&](int count) {
        for (int i = 0; i < count; ++i)
            deliveries.emplace_back(t += nanos(piece), piece);
    };
    realTime(100);
    // Our thread stalls for 0.4 s; then the twenty pieces that waited come in at once.
    t += 400'000'000;
    for (int i = 0; i < 20; ++i)
        deliveries.emplace_back(t, piece);
    realTime(100);
    SampleClock clock(rate);
    std::vector<Stamped> stamped = stampAll(clock, deliveries);
    EXPECT_EQ(jumps(stamped), std::vector<int64_t>());

    // The device is suspended for a second and its samples are gone: after a short wait the count
    // jumps over the missing second, and the sound after it is in its place again.
    const int64_t resumed = (t += second);
    deliveries.clear();
    realTime(100);
    const std::vector<Stamped> after = stampAll(clock, deliveries);
    stamped.insert(stamped.end(), after.begin(), after.end());
    const std::vector<int64_t> gaps = jumps(stamped);
    ASSERT_EQ(gaps.size(), 1u);
    EXPECT_NEAR(double(gaps[0]), double(second), 0.02 * second);
    for (const Stamped& s : after) {
        if (s.arrival > resumed + SampleClock::catchUpAfterNs + 50'000'000) {
            EXPECT_NEAR(double(s.pts), double(s.arrival - nanos(piece)), 1e6);
        }
    }
}

TEST(SampleClock, AnHourOfADeviceWhoseClockDriftsStaysInStep)
{
    // Devices 300 ppm fast and slow, 20 ms at a time: over an hour they part from our clock by a
    // second; the count follows the clock within its tolerance and a buffer or so more, and never
    // goes back past a buffer it gave.
    for (const double ppm : { 300.0, -300.0 }) {
        SampleClock clock(rate);
        const int64_t piece = rate / 50;
        const double period = double(nanos(piece)) / (1 + ppm * 1e-6); // the device's 20 ms, on our clock
        long long worst = 0;
        int64_t previous = 0;
        int backwards = 0; // stamps at or before the one before: such a buffer would be dropped whole
        for (int i = 1; i <= 50 * 3600; ++i) {
            const auto arrival = int64_t(10.0 * second + i * period);
            const int64_t pts = clock.stamp(arrival - int64_t(period), piece);
            worst = std::max(worst, std::llabs(pts - (arrival - int64_t(period))));
            backwards += pts <= previous;
            previous = pts;
        }
        EXPECT_LT(worst, SampleClock::toleranceNs + 25'000'000) << ppm;
        EXPECT_EQ(backwards, 0) << ppm;
    }
}

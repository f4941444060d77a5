#include "capture/SampleClock.h"

#include <algorithm>

SampleClock::SampleClock(int sampleRate)
    : rate(sampleRate > 0 ? sampleRate : 1)
{
}

int64_t SampleClock::nextTime() const
{
    // From the anchor by whole samples, so that no rounding piles up over hours.
    return *anchor + counted / rate * 1'000'000'000 + counted % rate * 1'000'000'000 / rate;
}

int64_t SampleClock::stamp(int64_t latest, int64_t frames)
{
    if (!anchor) {
        anchor = latest;
        counted = frames;
        last = latest;
        return latest;
    }
    int64_t time = nextTime();
    const int64_t difference = latest - time;
    const Apart now = difference > toleranceNs ? Apart::behind : difference < -toleranceNs ? Apart::ahead : Apart::no;
    if (now != apart) {
        apart = now;
        apartSince = latest;
        closest = difference;
    } else if (now == Apart::behind) {
        closest = std::min(closest, difference);
    } else if (now == Apart::ahead) {
        closest = std::max(closest, difference);
    }
    const int64_t lasted = latest - apartSince;
    if ((apart == Apart::behind && lasted >= catchUpAfterNs) || (apart == Apart::ahead && lasted >= fallBackAfterNs)) {
        // Never back to or before the last buffer's time: a buffer that does not move past the
        // one before is dropped whole downstream. What is left of the lead goes at the next jump.
        anchor = std::max(time + closest, last + 1);
        counted = 0;
        time = *anchor;
        apart = Apart::no;
    }
    counted += frames;
    last = time;
    return time;
}

void SampleClock::skip(int64_t frames)
{
    if (anchor) counted += frames;
}

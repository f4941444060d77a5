#include "recorder/AudioMixer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Mono float samples of a buffer in its own format: the average of its channels.
void toMono(const AudioBuffer& buffer, std::vector<float>& out)
{
    const int frames = buffer.frameCount();
    const int channels = std::max(1, buffer.channels);
    out.assign(size_t(frames), 0.0f);
    if (buffer.format == AudioBuffer::SampleFormat::Float32) {
        const auto* s = reinterpret_cast<const float*>(buffer.data.constData());
        for (int f = 0; f < frames; ++f) {
            float sum = 0;
            for (int c = 0; c < channels; ++c)
                sum += s[f * channels + c];
            out[size_t(f)] = sum / float(channels);
        }
    } else {
        const auto* s = reinterpret_cast<const int16_t*>(buffer.data.constData());
        for (int f = 0; f < frames; ++f) {
            float sum = 0;
            for (int c = 0; c < channels; ++c)
                sum += float(s[f * channels + c]);
            out[size_t(f)] = sum / (32768.0f * float(channels));
        }
    }
}

} // namespace

AudioMixer::AudioMixer(Output out)
    : output(std::move(out))
{
}

int64_t AudioMixer::positionOf(const MediaTime& time)
{
    return time.convertScale(sampleRate).value;
}

AudioMixer::Pushed AudioMixer::push(Input input, const AudioBuffer& buffer)
{
    if (!buffer.pts.isNumeric() || buffer.sampleRate <= 0 || buffer.channels <= 0 || buffer.frameCount() == 0)
        return Pushed::taken;
    Lane& lane = lanes[size_t(input)];
    if (lane.lastPts.isValid() && !(buffer.pts > lane.lastPts)) return Pushed::late;
    const int64_t position = positionOf(buffer.pts);
    const double step = double(buffer.sampleRate) / sampleRate; // input samples per output sample
    const double span = double(buffer.frameCount()) / step; // the buffer's length at the track's rate
    // Also what a gap before it would fill with silence: a time stamp far in the future must not
    // make a lane of minutes.
    if (clock != std::numeric_limits<int64_t>::max() && double(position) + span > double(clock + maxAheadSamples))
        return Pushed::tooFarAhead;
    lane.lastPts = buffer.pts;

    const bool continues = lane.continuable && std::abs(double(position) - lane.expectedPosition) <= jitterSamples;
    int64_t skip = 0; // output samples of this buffer that the lane has had already
    if (continues) {
        lane.expectedPosition += span;
    } else {
        lane.readPosition = 0;
        lane.expectedPosition = double(position) + span;
        if (!lane.used || (position > lane.end && lane.pending.empty())) {
            lane.end = position;
        } else if (position > lane.end) {
            lane.pending.resize(lane.pending.size() + size_t(position - lane.end), 0.0f); // a gap: silence
            lane.end = position;
        } else {
            skip = lane.end - position;
        }
    }
    lane.used = true;
    lane.continuable = true;
    lane.active = true;

    toMono(buffer, mono);
    const auto n = int64_t(mono.size());
    double read = lane.readPosition;
    while (read <= double(n - 1)) {
        const auto i0 = int64_t(std::floor(read));
        const auto frac = float(read - double(i0));
        const float a = i0 < 0 ? lane.previous : mono[size_t(i0)];
        const float b = i0 + 1 < n ? mono[size_t(i0 + 1)] : a;
        read += step;
        if (skip > 0) {
            --skip;
            continue;
        }
        // What comes after its moment has been mixed is gone.
        if (!started || lane.end >= mixedUntil) lane.pending.push_back(a + (b - a) * frac);
        ++lane.end;
    }
    lane.readPosition = read - double(n);
    lane.previous = mono.back();
    mix();
    return Pushed::taken;
}

void AudioMixer::endInput(Input input)
{
    Lane& lane = lanes[size_t(input)];
    lane.active = false;
    lane.continuable = false;
    mix();
}

void AudioMixer::advanceClock(const MediaTime& time)
{
    if (!time.isNumeric()) return;
    const int64_t position = positionOf(time);
    if (clock != std::numeric_limits<int64_t>::max() && position <= clock) return;
    clock = position;
    mix();
}

void AudioMixer::mix()
{
    // Up to where every active input has delivered, but never more than maxWait behind the newest,
    // and never past the clock: what an input gave for later waits.
    constexpr int64_t none = std::numeric_limits<int64_t>::min();
    int64_t minActiveEnd = std::numeric_limits<int64_t>::max();
    int64_t maxEnd = none;
    int64_t firstStart = std::numeric_limits<int64_t>::max();
    bool anyActive = false;
    for (const Lane& lane : lanes) {
        if (!lane.used) continue;
        if (!lane.pending.empty()) firstStart = std::min(firstStart, lane.start());
        const int64_t end = std::min(lane.end, clock);
        maxEnd = std::max(maxEnd, end);
        if (lane.active) {
            minActiveEnd = std::min(minActiveEnd, end);
            anyActive = true;
        }
    }
    if (maxEnd == none) return;
    const int64_t until = anyActive ? std::max(minActiveEnd, maxEnd - maxWaitSamples) : maxEnd;
    if (!started) {
        if (firstStart == std::numeric_limits<int64_t>::max()) return;
        started = true;
        mixedUntil = firstStart;
    }
    if (until <= mixedUntil) return;

    std::vector<float> sum(size_t(until - mixedUntil), 0.0f);
    for (Lane& lane : lanes) {
        const int64_t start = lane.start();
        const int64_t from = std::max(start, mixedUntil);
        const int64_t to = std::min(lane.end, until);
        for (int64_t p = from; p < to; ++p)
            sum[size_t(p - mixedUntil)] += lane.pending[size_t(p - start)];
        const int64_t used = std::clamp<int64_t>(until - start, 0, int64_t(lane.pending.size()));
        lane.pending.erase(lane.pending.begin(), lane.pending.begin() + used);
    }
    deliver(mixedUntil, sum);
    mixedUntil = until;
}

void AudioMixer::deliver(int64_t from, std::vector<float>& samples)
{
    // A peak limiter: the gain drops at once to what keeps a sample under the ceiling, and comes
    // back toward 1 over the release time.
    static const float release = float(1.0 - std::exp(-1.0 / (releaseSeconds * sampleRate)));
    for (float& s : samples) {
        const float magnitude = std::fabs(s);
        if (magnitude * limiterGain > ceiling) limiterGain = ceiling / magnitude;
        s *= limiterGain;
        limiterGain += (1.0f - limiterGain) * release;
    }
    AudioBuffer buffer;
    buffer.format = AudioBuffer::SampleFormat::Float32;
    buffer.sampleRate = sampleRate;
    buffer.channels = 1;
    buffer.data = QByteArray(reinterpret_cast<const char*>(samples.data()), qsizetype(samples.size() * sizeof(float)));
    buffer.pts = MediaTime(from, sampleRate);
    if (output) output(buffer);
}

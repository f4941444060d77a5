#include "CaptureTestSupport.h"
#include "X11TestClient.h"
#include "platform/pulse/PulseAudioSource.h"
#include "platform/pulse/PulseServerWatch.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/TestDesktop.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

// System audio on a private PulseAudio: a tone played into the null sink must come back through
// its monitor, in the sink's own format, on the capture clock.
using namespace CaptureTestSupport;

namespace {

struct AudioLog {
    std::mutex mutex;
    std::vector<AudioBuffer> buffers; // guarded by mutex
    void add(const AudioBuffer& b)
    {
        std::lock_guard lock(mutex);
        buffers.push_back(b);
    }
    std::vector<AudioBuffer> snapshot()
    {
        std::lock_guard lock(mutex);
        return buffers;
    }
};

// The largest magnitude among the buffers that began at or after `from` on the capture clock.
float peakSince(const std::vector<AudioBuffer>& buffers, int64_t from)
{
    float peak = 0;
    for (const AudioBuffer& b : buffers) {
        if (b.pts.value < from || b.format != AudioBuffer::SampleFormat::Int16) continue;
        const auto* samples = reinterpret_cast<const int16_t*>(b.data.constData());
        for (int i = 0; i < b.frameCount() * b.channels; ++i)
            peak = std::max(peak, std::abs(samples[i] / 32768.0f));
    }
    return peak;
}

} // namespace

TEST(CapturePulse, ToneInTheNullSinkArrivesAsSystemAudioWithIncreasingTimestamps)
{
    TestDesktop desktop;
    ASSERT_EQ(desktop.start({ .width = 320, .height = 180, .audio = true }), QString());
    QTemporaryDir dir;
    const QString tone = writeTone(dir.filePath(QStringLiteral("tone.wav")), 48000, 1.0, 440, 0.5);
    ASSERT_FALSE(tone.isEmpty());

    CaptureEngine engine(std::make_shared<X11CaptureBackend>(), std::make_shared<PulseSystemAudio>());
    AudioLog log;
    engine.audioSink = [&log](const AudioBuffer& b) { log.add(b); };
    refresh(engine);
    const int64_t started = monotonicNanoseconds();
    engine.startStream(320, 180, 10, false, false, true);
    ASSERT_TRUE(engine.isStreaming()) << engine.errorMessage().value_or(QString()).toStdString();
    ASSERT_EQ(desktop.run(QStringLiteral("paplay"), { QStringLiteral("--device=vsink"), tone }), 0);
    spinUntil([] { return false; }, 300);
    engine.stopStream();
    const int64_t stopped = monotonicNanoseconds();

    const std::vector<AudioBuffer> buffers = log.snapshot();
    ASSERT_GT(buffers.size(), 10u);
    // The null sink's own format: 16-bit stereo at 48 kHz, not converted.
    EXPECT_EQ(buffers[0].format, AudioBuffer::SampleFormat::Int16);
    EXPECT_EQ(buffers[0].sampleRate, 48000);
    EXPECT_EQ(buffers[0].channels, 2);

    int64_t frames = 0;
    int64_t loudFrames = 0;
    int crossings = 0;
    int16_t previous = 0;
    for (size_t i = 0; i < buffers.size(); ++i) {
        const AudioBuffer& b = buffers[i];
        EXPECT_EQ(b.pts.timescale, 1'000'000'000);
        EXPECT_GE(b.pts.value, started - 1'000'000'000);
        EXPECT_LE(b.pts.value, stopped);
        if (i > 0) {
            EXPECT_GT(b.pts, buffers[i - 1].pts) << "buffer " << i;
        }
        frames += b.frameCount();
        const auto* samples = reinterpret_cast<const int16_t*>(b.data.constData());
        for (int f = 0; f < b.frameCount(); ++f) {
            const int16_t left = samples[2 * f];
            if (std::abs(left) > 8000) ++loudFrames;
            if ((left >= 0) != (previous >= 0) && std::abs(left - previous) > 300) ++crossings;
            previous = left;
        }
    }
    // About a second of tone came through, at its pitch: 440 Hz crosses zero 880 times a second.
    EXPECT_GT(loudFrames, 48000 * 6 / 10);
    const double toneSeconds = 1.0;
    EXPECT_NEAR(crossings / toneSeconds, 880, 60);
    // The times step with the samples: first to last spans what was recorded.
    const double span = (buffers.back().pts - buffers.front().pts).seconds() + buffers.back().duration().seconds();
    EXPECT_NEAR(span, double(frames) / 48000, 0.06);
}

TEST(CapturePulse, ASourceInFloatFormatIsRecordedAsFloat)
{
    TestDesktop desktop;
    ASSERT_EQ(desktop.start({ .width = 320, .height = 180, .audio = true }), QString());
    QString out;
    ASSERT_EQ(desktop.run(QStringLiteral("pactl"),
                  { QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sources") }, &out),
        0);
    AudioLog log;
    PulseAudioSource::Opened opened = PulseAudioSource::open(PulseAudioSource::Device::defaultSource, {},
        QStringLiteral("Test"), [&log](const AudioBuffer& b) { log.add(b); });
    ASSERT_TRUE(opened.source) << opened.error.toStdString();
    EXPECT_EQ(opened.source->sourceName(), QStringLiteral("vmic"));
    // The harness's sine source makes float samples: the path the system audio test doesn't take.
    ASSERT_TRUE(out.contains(QStringLiteral("vmic\tmodule-sine-source.c\tfloat32le"))) << out.toStdString();
    ASSERT_TRUE(spinUntil([&log] { return log.snapshot().size() > 5; }, 3000));
    opened.source->stop();
    const size_t count = log.snapshot().size();
    QThread::msleep(100);
    EXPECT_EQ(log.snapshot().size(), count); // nothing after stop

    const std::vector<AudioBuffer> buffers = log.snapshot();
    ASSERT_EQ(buffers[0].format, AudioBuffer::SampleFormat::Float32);
    EXPECT_EQ(buffers[0].sampleRate, 44100);
    EXPECT_EQ(buffers[0].channels, 1);
    {
        float peak = 0;
        for (const AudioBuffer& b : buffers) {
            const auto* samples = reinterpret_cast<const float*>(b.data.constData());
            for (int i = 0; i < b.frameCount() * b.channels; ++i)
                peak = std::max(peak, std::abs(samples[i]));
        }
        EXPECT_GT(peak, 0.05f);
        EXPECT_LE(peak, 1.0f);
    }
}

TEST(CapturePulse, NoSoundServerIsAClearFailure)
{
    const QByteArray saved = qgetenv("PULSE_SERVER");
    QTemporaryDir dir;
    qputenv("PULSE_SERVER", (QStringLiteral("unix:") + dir.filePath(QStringLiteral("nothing-here"))).toUtf8());
    PulseSystemAudio audio;
    SystemAudioBackend::Start start = audio.start([](const AudioBuffer&) {});
    EXPECT_FALSE(start.stream);
    EXPECT_TRUE(start.error.startsWith(QStringLiteral("cannot reach the PulseAudio server: ")))
        << start.error.toStdString();
    if (saved.isEmpty())
        qunsetenv("PULSE_SERVER");
    else
        qputenv("PULSE_SERVER", saved);
}

// The user's sound server restarted (an update, `pulseaudio -k`): what the system plays is
// recorded again from the new server, without a new stream.
TEST(CapturePulse, SystemAudioComesBackAfterTheSoundServerRestarts)
{
    TestDesktop desktop;
    ASSERT_EQ(desktop.start({ .width = 320, .height = 180, .audio = true }), QString());
    QTemporaryDir dir;
    const QString tone = writeTone(dir.filePath(QStringLiteral("tone.wav")), 48000, 1.0, 440, 0.5);
    AudioLog log;
    PulseSystemAudio audio;
    SystemAudioBackend::Start start = audio.start([&log](const AudioBuffer& b) { log.add(b); });
    ASSERT_TRUE(start.stream) << start.error.toStdString();
    ASSERT_TRUE(spinUntil([&log] { return !log.snapshot().empty(); }, 3000));

    ASSERT_EQ(desktop.restartSound(), QString());
    const int64_t restarted = monotonicNanoseconds();
    EXPECT_TRUE(spinUntil(
        [&] {
            const std::vector<AudioBuffer> buffers = log.snapshot();
            return !buffers.empty() && buffers.back().pts.value > restarted;
        },
        8000))
        << "nothing recorded since the restart";
    ASSERT_EQ(desktop.run(QStringLiteral("paplay"), { QStringLiteral("--device=vsink"), tone }), 0);
    EXPECT_TRUE(spinUntil([&] { return peakSince(log.snapshot(), restarted) > 0.4f; }, 5000))
        << "peak since the restart: " << peakSince(log.snapshot(), restarted);
    start.stream->stop();
}

TEST(CapturePulse, TheServerWatchSaysWhenTheSoundServerGoesAndWhenItIsBack)
{
    TestDesktop desktop;
    ASSERT_EQ(desktop.start({ .width = 320, .height = 180, .audio = true }), QString());
    std::mutex mutex;
    std::vector<bool> reports; // lost: true; back: false
    PulseServerWatch watch;
    watch.watch([&](bool lost, const QString&) {
        std::lock_guard lock(mutex);
        reports.push_back(lost);
    });
    const auto seen = [&] {
        std::lock_guard lock(mutex);
        return reports;
    };
    spinUntil([] { return false; }, 500); // connected: the first connection is no news
    EXPECT_TRUE(seen().empty());

    ASSERT_EQ(desktop.restartSound(), QString());
    EXPECT_TRUE(spinUntil([&] { return seen().size() >= 2; }, 8000));
    EXPECT_EQ(seen(), (std::vector<bool> { true, false }));
}

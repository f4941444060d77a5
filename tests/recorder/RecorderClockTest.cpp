#include "ClipProbe.h"
#include "RecorderHarness.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>

// The ring on a clock that the test moves: a still screen sends no frames, and the clip must still
// cover the time that passed.
namespace {

constexpr double frameInterval = 1.0 / 30;

struct Timeline {
    SegmentedRecorder& recorder;
    std::shared_ptr<std::atomic<int64_t>> nanoseconds = std::make_shared<std::atomic<int64_t>>(0);

    explicit Timeline(SegmentedRecorder& r, double startSeconds)
        : recorder(r)
    {
        set(startSeconds);
        recorder.setClock([ns = nanoseconds] { return MediaTime::fromNanoseconds(ns->load()); });
    }
    void set(double seconds) { nanoseconds->store(int64_t(std::llround(seconds * 1e9))); }
    static MediaTime at(double seconds) { return MediaTime::fromNanoseconds(int64_t(std::llround(seconds * 1e9))); }
    // Ticks as the program's ticker does: four a second.
    void stillUntil(double from, double to)
    {
        for (double t = from; t <= to + 1e-9; t += 0.25) {
            set(t);
            recorder.advanceClock(at(t));
        }
        set(to);
    }
    // Frames at 30 a second from `from` up to `to`, painted with their own index.
    int frames(int firstIndex, double from, double to)
    {
        int index = firstIndex;
        for (double t = from; t < to - 1e-9; t += frameInterval, ++index) {
            set(t);
            recorder.ingest(IndexedFrames::frame(index, 256, 144, at(t)));
        }
        set(to);
        return index;
    }
};

struct Clip {
    QString path;
    QString error;
};

// Starts a recording whose outcome lands in `clip`.
void startClip(SegmentedRecorder& recorder, const QString& destination, Clip& clip)
{
    recorder.onFinished = [&clip](const QString& path) { clip.path = path; };
    recorder.onError = [&clip](const QString& text) { clip.error = text; };
    recorder.startRecording(destination);
}

bool waitForClip(SegmentedRecorder& recorder, const Clip& clip)
{
    return spinUntil([&] { return (!clip.path.isEmpty() || !clip.error.isEmpty()) && !recorder.isExporting(); }, 30000);
}

} // namespace

TEST(RecorderClock, AStillScreenIsHeldForAsLongAsItLastedAndTheRingStillTurns)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 3);
    Timeline time(*recorder, 100);
    recorder->ingest(IndexedFrames::frame(1, 256, 144, Timeline::at(100)));
    time.stillUntil(100, 120);
    settle(*recorder);

    // Segments closed every 6 s of the clock, and those older than the buffer plus one segment went.
    const std::vector<Segment> ring = recorder->segmentsSnapshot();
    ASSERT_EQ(ring.size(), 2u);
    EXPECT_NEAR(ring[0].startPTS.seconds(), 106, 0.01);
    EXPECT_NEAR(ring[1].startPTS.seconds(), 112, 0.01);
    EXPECT_NEAR(ring[1].endPTS.seconds(), 118, 0.01);
    for (const Segment& s : ring) {
        const ClipProbe file = ClipProbe::read(s.url);
        ASSERT_EQ(file.frames.size(), 1u); // one picture, not one per frame interval
        EXPECT_EQ(file.frames[0].index, 1);
        EXPECT_NEAR(file.videoEnd, 6.0, 0.01);
    }
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 3.0);

    Clip clip;
    startClip(*recorder, out.filePath("still.mp4"), clip);
    time.stillUntil(120.25, 128.2);
    settle(*recorder);
    EXPECT_NEAR(recorder->currentDuration(), 8.0, 0.01); // the last tick
    recorder->stopRecording();
    ASSERT_TRUE(waitForClip(*recorder, clip));
    ASSERT_EQ(clip.error, "");
    const ClipProbe probe = ClipProbe::read(clip.path);
    EXPECT_EQ(probe.decodeErrors, 0);
    // From the buffer before the first press (117 s) to the second press (128.2 s).
    EXPECT_NEAR(probe.videoEnd - probe.frames.front().seconds, 11.2, frameInterval);
    EXPECT_LE(probe.frames.size(), 4u);
    for (const auto& f : probe.frames)
        EXPECT_EQ(f.index, 1);
    EXPECT_NEAR(recorder->currentDuration(), 8.2, 0.01);
}

TEST(RecorderClock, AStillStretchAcrossASegmentBoundaryKeepsItsLength)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    Timeline time(*recorder, 100);
    int next = time.frames(0, 100, 104); // changing for 4 s
    const int lastBeforeStill = next - 1;
    Clip clip;
    startClip(*recorder, out.filePath("mixed.mp4"), clip);
    time.stillUntil(104, 109); // still for 5 s, across the boundary at 106
    next = time.frames(next, 109, 112); // changing again
    const int firstAfterStill = lastBeforeStill + 1;
    recorder->stopRecording();
    ASSERT_TRUE(waitForClip(*recorder, clip));
    ASSERT_EQ(clip.error, "");
    const ClipProbe probe = ClipProbe::read(clip.path);
    EXPECT_EQ(probe.decodeErrors, 0);
    const double zero = probe.frames.front().seconds;
    EXPECT_EQ(probe.frames.front().index, 0); // the buffer reaches before the first frame
    // The picture before the still stretch is on show all through it, the one after comes on time.
    for (double t : { 4.5, 5.9, 6.1, 8.9 }) {
        const ClipProbe::Frame* shown = probe.frameAt(zero + t);
        ASSERT_NE(shown, nullptr);
        EXPECT_EQ(shown->index, lastBeforeStill) << "at " << t << " s";
    }
    const auto after = std::find_if(
        probe.frames.begin(), probe.frames.end(), [&](const auto& f) { return f.index == firstAfterStill; });
    ASSERT_NE(after, probe.frames.end());
    EXPECT_NEAR(after->seconds - zero, 9.0, 0.01);
    EXPECT_NEAR(probe.videoEnd - zero, 12.0, frameInterval);
}

TEST(RecorderClock, SoundGoesOnThroughAStillScreenAndStaysWithThePicture)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 2);
    recorder->setAudioEnabled(true);
    Timeline time(*recorder, 100);
    // A tone that never stops, in buffers of 1024 samples that arrive 20 ms after they were
    // recorded; ticks come every quarter second; the screen changes only around 111.9-112.1 s, so
    // one boundary is crossed by a frame and the others by ticks.
    int64_t sample = 100 * 44100;
    int frame = 0;
    bool recording = false;
    Clip clip;
    double nextTick = 100;
    recorder->ingest(IndexedFrames::frame(frame++, 256, 144, Timeline::at(100)));
    for (double t = 100; t < 118; t += 0.005) {
        time.set(t);
        while (MediaTime(sample + 1024, 44100).seconds() + 0.02 <= t) {
            recorder->ingestAudio(
                IndexedFrames::tone(AudioBuffer::SampleFormat::Float32, 44100, 1, 1024, MediaTime(sample, 44100)));
            sample += 1024;
        }
        if (t >= 111.9 && t < 112.1 && t - (111.9 + frame * frameInterval) >= 0)
            recorder->ingest(IndexedFrames::frame(frame++, 256, 144, Timeline::at(t)));
        if (t >= nextTick) {
            recorder->advanceClock(Timeline::at(t));
            nextTick += 0.25;
        }
        if (!recording && t >= 103) {
            startClip(*recorder, out.filePath("sound.mp4"), clip);
            recording = true;
        }
    }
    recorder->stopRecording();
    // The sound of the last moments comes a little after the press, and the clock goes on.
    for (; MediaTime(sample, 44100).seconds() < 118.1; sample += 1024)
        recorder->ingestAudio(
            IndexedFrames::tone(AudioBuffer::SampleFormat::Float32, 44100, 1, 1024, MediaTime(sample, 44100)));
    time.set(119);
    ASSERT_TRUE(waitForClip(*recorder, clip));
    ASSERT_EQ(clip.error, "");
    const ClipProbe probe = ClipProbe::read(clip.path);
    EXPECT_EQ(probe.decodeErrors, 0);
    const double pictureLength = probe.videoEnd - probe.frames.front().seconds;
    EXPECT_NEAR(pictureLength, 16.995, frameInterval); // 101 s to 117.995 s
    EXPECT_NEAR(probe.audioStart, probe.frames.front().seconds, 0.05);
    EXPECT_NEAR(probe.audioSeconds, pictureLength, 0.05);
    // No hole at the joins: the sound runs on as one stream from segment to segment, so the tone
    // is never quiet for longer than it is at a zero crossing.
    EXPECT_LT(probe.longestQuietStretch(0.02f), 0.001);
}

TEST(RecorderClock, ARecordingAnsweredLateBeginsWhenItWasAskedFor)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 3);
    Timeline time(*recorder, 100);
    int next = time.frames(0, 100, 110);
    // Asked for at 108 s (a change the area monitor saw), answered at 110 s by a busy window.
    Clip clip;
    recorder->onFinished = [&clip](const QString& path) { clip.path = path; };
    recorder->onError = [&clip](const QString& text) { clip.error = text; };
    recorder->startRecording(out.filePath("late.mp4"), std::chrono::seconds(2));
    next = time.frames(next, 110, 112);
    recorder->stopRecording();
    ASSERT_TRUE(waitForClip(*recorder, clip));
    ASSERT_EQ(clip.error, "");
    const ClipProbe probe = ClipProbe::read(clip.path);
    EXPECT_EQ(probe.decodeErrors, 0);
    // The buffer before the moment asked for: from 105 s, not 107 s, to the press at 112 s.
    ASSERT_FALSE(probe.frames.empty());
    EXPECT_NEAR(probe.frames.front().index, 150, 1);
    EXPECT_NEAR(probe.videoEnd - probe.frames.front().seconds, 7.0, 2 * frameInterval);
}

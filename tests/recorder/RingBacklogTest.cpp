#include "RecorderHarness.h"

#include <QDir>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

// What waits between the capture and audio threads and the ring is bounded, and what does not fit
// is counted by why it was lost, not silently gone.
namespace {

// Holds the ring's queue inside the first segment's opening until released: a ring that has fallen
// behind, for as long as a test likes.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;
    bool open = false;

    void hold()
    {
        std::unique_lock lock(mutex);
        entered = true;
        changed.notify_all();
        changed.wait(lock, [this] { return open; });
    }
    void waitUntilEntered()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return entered; });
    }
    void release()
    {
        std::lock_guard lock(mutex);
        open = true;
        changed.notify_all();
    }
};

// `frames` of mono float sound at 44100 Hz starting at `pts`.
AudioBuffer sound(const MediaTime& pts, int frames)
{
    AudioBuffer b;
    b.format = AudioBuffer::SampleFormat::Float32;
    b.sampleRate = 44100;
    b.channels = 1;
    b.pts = pts;
    b.data = QByteArray(qsizetype(frames * sizeof(float)), '\0');
    return b;
}

} // namespace

TEST(RingBacklog, AFloodOfSoundAndPicturesIntoABusyRingIsHeldToItsBoundsAndEveryDropIsCounted)
{
    auto recorder = pacedRecorder(30, 10);
    recorder->setFramesWaitingLimit(SegmentedRecorder::defaultFramesWaitingLimit);
    recorder->setAudioBuffersWaitingLimit(SegmentedRecorder::audioBuffersWaitingLimit);
    recorder->setAudioEnabled(true);
    Gate gate;
    recorder->setWriterFactory([&gate](const QString& path, std::shared_ptr<SegmentEncoder> encoder) {
        gate.hold();
        auto writer = std::make_unique<SegmentWriter>(path, encoder);
        writer->setExpectsMediaDataInRealTime(false);
        return writer;
    });
    recorder->startRecording(QDir::temp().filePath("unused.mp4"));
    recorder->ingest(IndexedFrames::frame(0, 256, 144, ticks600(0)));
    gate.waitUntilEntered();

    // From the audio thread, as fast as it can: 20,000 buffers of 256 samples (about two minutes of
    // sound) while the ring takes none.
    constexpr int flood = 20000, samples = 256;
    std::thread audio([&] {
        for (int i = 0; i < flood; ++i)
            recorder->ingestAudio(sound(MediaTime(int64_t(i) * samples, 44100), samples));
    });
    // And from the capture thread, pictures.
    for (int i = 1; i <= 50; ++i)
        recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(20 * i)));
    audio.join();

    const int audioBound = SegmentedRecorder::audioBuffersWaitingLimit;
    const int frameBound = SegmentedRecorder::defaultFramesWaitingLimit;
    EXPECT_EQ(recorder->audioBuffersWaiting().size(), audioBound);
    EXPECT_EQ(recorder->framesWaiting().size(), frameBound);
    const DropCounters& drops = *recorder->dropCounters();
    EXPECT_EQ(drops.count(DropCounters::Cause::audioBacklog), flood - audioBound);
    EXPECT_EQ(drops.count(DropCounters::Cause::ringBacklog), 50 - frameBound);

    gate.release();
    settle(*recorder);
    EXPECT_EQ(recorder->audioBuffersWaiting().size(), 0);
    EXPECT_EQ(recorder->framesWaiting().size(), 0);
    // Never more than the bound waited, at any moment.
    EXPECT_EQ(recorder->audioBuffersWaiting().peak(), audioBound);
    EXPECT_EQ(recorder->framesWaiting().peak(), frameBound);
    // What was let in went on into the segment: the counts are the whole loss, and the recording
    // reports it.
    const DropCounters::Snapshot lost = drops.snapshot();
    EXPECT_EQ(lost.total(), (flood - audioBound) + (50 - frameBound)) << lost.describe().toStdString();
    EXPECT_EQ(recorder->droppedFrames(), lost.total());
    EXPECT_EQ(lost.describe(),
        QStringLiteral("%1 frames (ring behind), %2 audio buffers (ring behind)")
            .arg(50 - frameBound)
            .arg(flood - audioBound));
}

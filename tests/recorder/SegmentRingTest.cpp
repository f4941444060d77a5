#include "ClipProbe.h"
#include "RecorderHarness.h"
#include "media/HevcEncoderChoice.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

using testing::HasSubstr;

namespace {

// Frames at 60 a second whose times wander by up to ±3 ms, as a capture clock does: a boundary
// then falls on whichever frame first reaches 6.0 s, not on a round frame number.
MediaTime jittered(int i)
{
    const int64_t jitterNs = ((i * 7919) % 13 - 6) * 500'000;
    return MediaTime(500'000'000'000 + int64_t(i) * 1'000'000'000 / 60 + jitterNs, 1'000'000'000);
}

// A hardware encoder as some drivers have it: it opens at any size and passes the probe's 256x144
// pictures, but above that size its first picture fails. Underneath it is libx265, for a real
// codec context to describe the stream with.
class SmallOnlyEncoder : public HevcEncoderProbe::Encoder {
public:
    static HevcEncoderProbe::Candidate candidate()
    {
        return { "hevc_smallonly",
            [](const VideoEncoder::Settings& s, QString* error) -> std::unique_ptr<HevcEncoderProbe::Encoder> {
                std::unique_ptr<HevcEncoderProbe::Encoder> inner = HevcEncoderProbe::candidates().back().open(s, error);
                if (!inner) return nullptr;
                return std::make_unique<SmallOnlyEncoder>(std::move(inner), s.width * s.height > 256 * 144);
            } };
    }
    SmallOnlyEncoder(std::unique_ptr<HevcEncoderProbe::Encoder> inner, bool tooLarge)
        : inner(std::move(inner))
        , tooLarge(tooLarge)
    {
    }
    int send(
        const QImage& image, int64_t pts, bool key, const PacketSink& sink, const std::vector<QRect>* changed) override
    {
        return tooLarge ? AVERROR(EIO) : inner->send(image, pts, key, sink, changed);
    }
    int finish(const PacketSink& sink) override { return inner->finish(sink); }
    const AVCodecContext* context() const override { return inner->context(); }

private:
    std::unique_ptr<HevcEncoderProbe::Encoder> inner;
    bool tooLarge;
};

} // namespace

TEST(SegmentRing, BoundariesFallOnKeyFramesAtMostSixSecondsInAndEveryFrameIsInOneFile)
{
    auto recorder = pacedRecorder(60, 10);
    std::vector<MediaTime> times;
    for (int i = 0; i < 60 * 20; ++i) {
        times.push_back(jittered(i));
        recorder->ingest(IndexedFrames::frame(i, 256, 144, times.back()));
    }
    settle(*recorder);

    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 3u);
    int next = 0; // the first frame the next file must hold
    std::vector<double> keys; // on the stream's clock, across every file
    for (size_t s = 0; s < segments.size(); ++s) {
        SCOPED_TRACE(s);
        EXPECT_EQ(segments[s].startPTS, times[next]);
        if (s + 1 < segments.size()) {
            EXPECT_EQ(segments[s].endPTS, segments[s + 1].startPTS);
        }
        EXPECT_TRUE(segments[s].url.startsWith(recorder->segmentsDirectory() + "/seg-"));
        EXPECT_TRUE(segments[s].url.endsWith(".mp4"));
        const ClipProbe file = ClipProbe::read(segments[s].url);
        EXPECT_EQ(file.videoCodec, "hevc");
        EXPECT_EQ(file.decodeErrors, 0);
        ASSERT_FALSE(file.frames.empty());
        for (size_t f = 0; f < file.frames.size(); ++f) {
            ASSERT_EQ(file.frames[f].index, next + int(f));
            EXPECT_NEAR(file.frames[f].seconds, (times[next + f] - times[next]).seconds(), 1e-4);
            if (file.frames[f].key) keys.push_back((times[next + f] - times[0]).seconds());
        }
        next += int(file.frames.size());
        EXPECT_TRUE(file.frames.front().key);
        // It ends in its last second, and no later than the first frame 6.0 s in, which is the
        // next file's first.
        const double length = (segments[s].endPTS - segments[s].startPTS).seconds();
        EXPECT_GT(length, 5.0);
        EXPECT_LT(file.frames.back().seconds, 6.0);
        EXPECT_EQ(segments[s].endPTS, times[next]);
    }
    // A key frame at least once a second, give or take the clock's jitter, and no more often
    // across a boundary than inside a file: the next file's first picture is the key frame that
    // was due, not a second one a few frames after it.
    ASSERT_GE(keys.size(), 18u);
    for (size_t k = 1; k < keys.size(); ++k) {
        EXPECT_LE(keys[k] - keys[k - 1], 1.0 + 0.006) << "at " << keys[k];
        EXPECT_GE(keys[k] - keys[k - 1], 0.95) << "at " << keys[k];
    }
    EXPECT_TRUE(QDir(recorder->segmentsDirectory()).path().contains("/velotape/segments-"));
}

TEST(SegmentRing, EvictsExactlyAtTheLimitAndSettlesAtTwoOrThreeFinishedSegments)
{
    auto recorder = pacedRecorder(60, 10);
    double maxBuffered = 0;
    QObject::connect(recorder.get(), &SegmentedRecorder::bufferedSecondsChanged,
        [&](double v) { maxBuffered = std::max(maxBuffered, v); });
    auto feed = [&](int index, int64_t tick) {
        recorder->ingest(IndexedFrames::frame(index, 256, 144, ticks600(tick)));
        settle(*recorder);
    };
    // 60 frames a second on the 600 clock from time 0: boundaries at exactly 6, 12, 18, 24 s.
    int i = 0;
    for (; i <= 22 * 60; ++i) {
        feed(i, 10 * i);
        if (i == 5 * 60) {
            EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 5.0);
        }
        if (i > 19 * 60) {
            const size_t n = recorder->segmentsSnapshot().size();
            EXPECT_TRUE(n == 2 || n == 3) << n << " finished at frame " << i;
        }
    }
    // At 22.0 s the first segment (0–6 s) is exactly bufferSeconds + 6 behind: it stays.
    std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments.front().endPTS, ticks600(6 * 600));
    const QString oldest = segments.front().url;
    EXPECT_TRUE(QFile::exists(oldest));
    // One tick later it goes, file and all.
    feed(i, 22 * 600 + 1);
    segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments.front().startPTS, ticks600(6 * 600));
    EXPECT_FALSE(QFile::exists(oldest));
    for (++i; i <= 26 * 60; ++i) {
        feed(i, 10 * i);
        const size_t n = recorder->segmentsSnapshot().size();
        EXPECT_TRUE(n == 2 || n == 3) << n << " finished at frame " << i;
    }
    // More than bufferSeconds lies on disk, but the buffer never shows more than was asked for.
    EXPECT_DOUBLE_EQ(maxBuffered, 10.0);
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 10.0);
}

TEST(SegmentRing, NothingIsEvictedWhileRecording)
{
    auto recorder = pacedRecorder(10, 1); // keep limit 7 s
    recorder->startRecording(QDir::temp().filePath("never-written.mp4"));
    for (int i = 0; i <= 200; ++i)
        recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(60 * i)));
    settle(*recorder);
    EXPECT_EQ(recorder->segmentsSnapshot().size(), 3u); // 0–6, 6–12, 12–18, open from 18
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_DOUBLE_EQ(recorder->currentDuration(), 20.0);
    recorder->disarmBuffering(); // the recording is thrown away, and the ring with it
    settle(*recorder);
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_DOUBLE_EQ(recorder->currentDuration(), 0.0);
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 0.0);
    EXPECT_TRUE(recorder->segmentsSnapshot().empty());
    EXPECT_TRUE(QDir(recorder->segmentsDirectory()).entryList(QDir::Files).isEmpty());
    // A frame that still comes starts the ring again.
    recorder->ingest(IndexedFrames::frame(0, 256, 144, ticks600(60 * 300)));
    settle(*recorder);
    EXPECT_EQ(QDir(recorder->segmentsDirectory()).entryList(QDir::Files).size(), 1);
}

TEST(SegmentRing, ConfigureClampsAndInvalidTimesChangeNothing)
{
    auto recorder = pacedRecorder(30, 10);
    recorder->configure(257, 145, 0.3, 0.5, 0);
    bool buffering = false;
    QObject::connect(recorder.get(), &SegmentedRecorder::isBufferingChanged, [&](bool v) { buffering = v; });
    recorder->armBuffering();
    // An invalid time touches nothing: no segment opens for it.
    recorder->ingest(VideoFrame { IndexedFrames::picture(7, 256, 144), MediaTime::invalid() });
    settle(*recorder);
    EXPECT_TRUE(buffering);
    EXPECT_TRUE(QDir(recorder->segmentsDirectory()).entryList(QDir::Files).isEmpty());

    for (int i = 0; i <= 6 * 30; ++i) {
        recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(20 * i)));
        if (i == 60) {
            recorder->ingest(VideoFrame { IndexedFrames::picture(7, 256, 144), MediaTime::invalid() });
            recorder->startRecording(QDir::temp().filePath("never-written.mp4"));
        }
    }
    settle(*recorder);
    // One more frame, now that the first segment's closing has reported back.
    recorder->ingest(IndexedFrames::frame(181, 256, 144, ticks600(20 * 181)));
    settle(*recorder);
    // The mark is the 2 s frame, not whatever the invalid frame might have left behind.
    EXPECT_DOUBLE_EQ(recorder->currentDuration(), 4.0 + 1.0 / 30);
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 1.0); // bufferSeconds 0.5 became 1.0
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 1u);
    const ClipProbe file = ClipProbe::read(segments[0].url);
    EXPECT_EQ(file.width, 256); // 257 rounded down to even
    EXPECT_EQ(file.height, 144);
    // At a rate of 1 every frame is a key frame: the segment ends on the first one in its last
    // second, a frame past 5 s.
    EXPECT_EQ(file.frames.size(), 151u);
}

TEST(SegmentRing, FailedWritersAreRetriedWithTheNextFrameAndTheRingHeals)
{
    auto recorder = pacedRecorder(30, 30); // nothing ages out here
    QTemporaryDir scratch;
    const QString fifthPath = scratch.filePath("fifth.mp4");
    std::atomic<int> opened = 0;
    recorder->setWriterFactory([&](const QString& path, std::shared_ptr<SegmentEncoder> encoder) {
        const int n = ++opened;
        QString at = path;
        if (n == 2) {
            QFile blocker(path); // a file in the way: the writer cannot be made
            blocker.open(QIODevice::WriteOnly);
        } else if (n == 3) {
            at = scratch.filePath("gone/seg.mp4"); // a folder that is not there: startWriting fails
        } else if (n == 5) {
            at = fifthPath; // this one will run out of room while it writes
        }
        auto writer = std::make_unique<SegmentWriter>(at, encoder);
        writer->setExpectsMediaDataInRealTime(false);
        return writer;
    });
    auto feed = [&](int from, int to) {
        for (int i = from; i <= to; ++i)
            recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(20 * i), true));
        settle(*recorder);
    };

    testing::internal::CaptureStderr();
    // Open #2 fails at the 6 s frame (180) and #3 at the next; #4 opens with frame 182, so exactly
    // two frames are in no file. The first segment closes normally all the same.
    feed(0, 362); // 362 rotates into #5
    // The disk fills up under #5: its writes fail from the next flush on, it stops taking frames,
    // and its closing at the next boundary finds it failed.
    signal(SIGXFSZ, SIG_IGN);
    rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit tight = saved;
    tight.rlim_cur = rlim_t(QFileInfo(fifthPath).size() + 1);
    setrlimit(RLIMIT_FSIZE, &tight);
    feed(363, 541);
    setrlimit(RLIMIT_FSIZE, &saved);
    feed(542, 750);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("Segment writer init failed: a file already exists at "));
    EXPECT_THAT(log, HasSubstr("startWriting failed: No such file or directory"));
    EXPECT_THAT(log, HasSubstr("Segment failed: "));
    EXPECT_THAT(log, HasSubstr("File too large"));

    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].startPTS, ticks600(0));
    EXPECT_EQ(segments[0].endPTS, ticks600(20 * 180));
    EXPECT_EQ(segments[1].startPTS, ticks600(20 * 182));
    EXPECT_EQ(segments[1].endPTS, ticks600(20 * 362));
    // #5's stretch is gone; the rotation after it opened a healthy writer again.
    EXPECT_EQ(segments[2].startPTS, ticks600(20 * 542));
    for (const Segment& s : segments) {
        const ClipProbe file = ClipProbe::read(s.url);
        EXPECT_EQ(file.decodeErrors, 0);
        ASSERT_EQ(file.frames.size(), 180u);
        EXPECT_EQ(file.frames.front().index, int(s.startPTS.value / 20));
    }
}

TEST(SegmentRing, AHardwareEncoderThatFailsAtTheStreamsSizeGivesWayToLibx265WithNoFrameLost)
{
    auto choice = std::make_shared<HevcEncoderChoice>(std::vector { SmallOnlyEncoder::candidate() });
    ASSERT_EQ(choice->chosen(), "hevc_smallonly");
    // The ring's encoder, on that choice, under every segment.
    auto ring = std::make_shared<SegmentEncoder>(choice);
    auto recorder = pacedRecorder(30, 30, 320, 180);
    recorder->setWriterFactory([ring](const QString& path, std::shared_ptr<SegmentEncoder>) {
        auto writer = std::make_unique<SegmentWriter>(path, ring);
        writer->setExpectsMediaDataInRealTime(false);
        return writer;
    });
    testing::internal::CaptureStderr();
    for (int i = 0; i <= 12 * 30; ++i)
        recorder->ingest(IndexedFrames::frame(i, 320, 180, ticks600(20 * i)));
    settle(*recorder);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log,
        HasSubstr("Video encoder: libx265 (passed over hevc_smallonly: fails at 320x180 (opens, but picture 1 "
                  "fails: Input/output error))"));
    EXPECT_EQ(choice->chosenSoFar().value_or(QString()).toStdString(), "libx265");

    // Every frame is in a file from the very first, which the stand-in, failing every picture at
    // this size, could not have written.
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 2u);
    for (const Segment& s : segments) {
        const ClipProbe file = ClipProbe::read(s.url);
        EXPECT_EQ(file.decodeErrors, 0);
        ASSERT_EQ(file.frames.size(), 180u);
        for (size_t f = 0; f < file.frames.size(); ++f)
            ASSERT_EQ(file.frames[f].index, int(s.startPTS.value / 20 + f));
        EXPECT_TRUE(file.frames.front().key);
    }
    EXPECT_EQ(segments.front().startPTS, ticks600(0));
}

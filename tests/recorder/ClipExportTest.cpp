#include "ClipProbe.h"
#include "RecorderHarness.h"
#include "recorder/ClipExporter.h"
#include "recorder/SegmentEncoder.h"
#include "recorder/SegmentWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtEndian>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace {

// What the owner of a recorder sees on the main thread.
struct Outcome {
    QString finished;
    QString error;
    bool sawExporting = false;
    int finishedCalls = 0;
    int errorCalls = 0;

    explicit Outcome(SegmentedRecorder& recorder)
    {
        recorder.onFinished = [this](const QString& url) {
            finished = url;
            ++finishedCalls;
        };
        recorder.onError = [this](const QString& text) {
            error = text;
            ++errorCalls;
        };
        QObject::connect(&recorder, &SegmentedRecorder::isExportingChanged, [this](bool v) { sawExporting |= v; });
    }
    bool arrived() const { return finishedCalls + errorCalls > 0; }
};

// Feeds frames at `fps` from `first` to `last` (inclusive) on the 600 clock, starting at 0.4 s so
// that whole seconds are not key frames, with mono float audio alongside when `audio` is set.
struct Feeder {
    SegmentedRecorder& recorder;
    int fps;
    bool audio = true;
    int64_t audioSamples = 0; // 44100 Hz samples fed so far, from 0.4 s

    static constexpr int64_t startTick = 240;
    MediaTime frameTime(int i) const { return ticks600(startTick + int64_t(i) * (600 / fps)); }
    int frameAt(double seconds) const { return int(std::lround((seconds - 0.4) * fps)); }

    // Frames come faster than real time here, so the ring is let catch up once every media second,
    // as it does live: otherwise a closing's report would queue up behind seconds of frames.
    void feed(int first, int last)
    {
        for (int i = first; i <= last; ++i) {
            const MediaTime t = frameTime(i);
            recorder.ingest(IndexedFrames::frame(i, 256, 144, t));
            if (i % fps == 0) recorder.waitUntilIdle();
            while (audio && MediaTime(startTick * 44100 / 600 + audioSamples, 44100) <= t) {
                const MediaTime at(startTick * 44100 / 600 + audioSamples, 44100);
                recorder.ingestAudio(IndexedFrames::tone(AudioBuffer::SampleFormat::Float32, 44100, 1, 1024, at));
                audioSamples += 1024;
            }
        }
    }
};

} // namespace

TEST(ClipExport, ClipRunsFromBufferSecondsBeforeTheStartToTheLastFrame)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    recorder->setAudioEnabled(true);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30 };
    const int startFrame = feeder.frameAt(30.0), stopFrame = feeder.frameAt(50.0);
    feeder.feed(0, startFrame);
    const QString destination = out.filePath("clips/Velotape 1.mp4"); // a folder that is not there yet
    recorder->startRecording(destination);
    feeder.feed(startFrame + 1, stopFrame);
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.finished, destination);
    EXPECT_TRUE(outcome.sawExporting);
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_NEAR(recorder->currentDuration(), 20.0, 1e-9); // kept after the stop

    const ClipProbe clip = ClipProbe::read(destination);
    ASSERT_TRUE(clip.opened);
    EXPECT_TRUE(clip.container.contains("mp4"));
    EXPECT_EQ(clip.videoCodec, "hevc");
    EXPECT_EQ(clip.audioCodec, "aac");
    EXPECT_EQ(clip.audioSampleRate, 44100);
    EXPECT_EQ(clip.audioChannels, 1);
    EXPECT_TRUE(clip.faststart);
    EXPECT_EQ(clip.decodeErrors, 0);
    // The 20 s frame is in the middle of a GOP (key frames at 19.4 and 20.4 s): the frames from
    // the key frame up to it are in the file but hidden, and the clip shows the 20 s frame first.
    ASSERT_FALSE(clip.frames.empty());
    EXPECT_EQ(clip.frames.front().index, feeder.frameAt(20.0));
    EXPECT_NEAR(clip.frames.front().seconds, 0.0, 1e-3);
    EXPECT_EQ(clip.frames.back().index, stopFrame);
    EXPECT_EQ(int(clip.frames.size()), stopFrame - feeder.frameAt(20.0) + 1);
    EXPECT_EQ(clip.videoPackets, stopFrame - feeder.frameAt(19.4) + 1); // from the key frame on
    // Across every segment boundary: no gap, no repeated picture, a key frame at least once a
    // second and none decoded out of order.
    double lastKey = 0;
    for (size_t i = 1; i < clip.frames.size(); ++i) {
        ASSERT_EQ(clip.frames[i].index, clip.frames[i - 1].index + 1);
        if (clip.frames[i].key) {
            EXPECT_LE(clip.frames[i].seconds - lastKey, 1.0 + 1e-3) << "at " << clip.frames[i].seconds;
            lastKey = clip.frames[i].seconds;
        }
    }
    EXPECT_EQ(clip.reorderedPackets, 0);
    EXPECT_NEAR(clip.duration(), 30.0, 1e-3);
    EXPECT_NEAR(clip.audioStart, 0.0, 0.03);
    EXPECT_NEAR(clip.audioSeconds, 30.0, 0.1);

    // The exported segments are gone, from disk and from the ring; nothing half-written is left.
    settle(*recorder);
    // Older ones, outside the span, may still be there until they age out.
    const std::vector<Segment> left = recorder->segmentsSnapshot();
    for (const Segment& s : left) {
        EXPECT_LE(s.endPTS, feeder.frameTime(feeder.frameAt(20.0)));
        EXPECT_TRUE(QFile::exists(s.url));
    }
    EXPECT_EQ(QDir(out.filePath("clips")).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

TEST(ClipExport, ASpanReachingBeforeTheFirstFrameStartsWithIt)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30, false };
    feeder.feed(0, 90); // 3 s
    recorder->startRecording(out.filePath("a.mp4"));
    feeder.feed(91, 150);
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");
    const ClipProbe clip = ClipProbe::read(out.filePath("a.mp4"));
    EXPECT_EQ(clip.audioCodec, ""); // no audio was wanted
    ASSERT_EQ(clip.frames.size(), 151u);
    EXPECT_EQ(clip.frames.front().index, 0);
    EXPECT_EQ(clip.frames.back().index, 150);
    EXPECT_EQ(clip.decodeErrors, 0);
}

TEST(ClipExport, SegmentEndingAtTheTrimIsLeftOutAndOneStartingThereIsNotCut)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(10, 10);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 10, false };
    // Boundaries at 6.4, 12.4, 18.4 s; a start at 28.4 s puts the trim exactly on 18.4 s.
    feeder.feed(0, feeder.frameAt(28.4));
    recorder->startRecording(out.filePath("b.mp4"));
    feeder.feed(feeder.frameAt(28.4) + 1, feeder.frameAt(30.0));
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");
    const ClipProbe clip = ClipProbe::read(out.filePath("b.mp4"));
    ASSERT_FALSE(clip.frames.empty());
    EXPECT_EQ(clip.frames.front().index, feeder.frameAt(18.4));
    EXPECT_EQ(clip.frames.back().index, feeder.frameAt(30.0));
    // The 12.4–18.4 s segment was not taken, so the export left it in the ring.
    settle(*recorder);
    const std::vector<Segment> left = recorder->segmentsSnapshot();
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.back().startPTS, feeder.frameTime(feeder.frameAt(12.4)));
    EXPECT_EQ(left.back().endPTS, feeder.frameTime(feeder.frameAt(18.4)));
}

TEST(ClipExport, SegmentsAtDifferentBitRatesJoinAndDecodeEveryFrame)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 30);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30, false };
    for (int i = 0; i <= 30 * 15; ++i) {
        if (i == 30 * 3) recorder->configure(256, 144, 6.0, 30, 30); // from the 6.4 s segment on
        // The bit rate is a ceiling: 1 Mb/s is below what these grainy pictures take at the
        // encoder's quality, 6 Mb/s above it.
        if (i == 30 * 9) recorder->configure(256, 144, 1.0, 30, 30); // from the 12.4 s segment on
        if (i == 30) recorder->startRecording(out.filePath("c.mp4"));
        recorder->ingest(IndexedFrames::frame(i, 256, 144, feeder.frameTime(i), true));
        if (i % 30 == 0) recorder->waitUntilIdle();
    }
    settle(*recorder);
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 2u);
    const double rate0 = QFileInfo(segments[0].url).size() * 8 / 6.0;
    const double rate1 = QFileInfo(segments[1].url).size() * 8 / 6.0;
    EXPECT_GT(std::max(rate0, rate1), 2 * std::min(rate0, rate1)); // the bit rate did change between them
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");
    const ClipProbe clip = ClipProbe::read(out.filePath("c.mp4"));
    EXPECT_EQ(clip.decodeErrors, 0);
    ASSERT_EQ(clip.frames.size(), size_t(30 * 15 + 1));
    for (size_t i = 0; i < clip.frames.size(); ++i)
        ASSERT_EQ(clip.frames[i].index, int(i));
}

TEST(ClipExport, FailuresReachOnErrorWithTheirTextAndLeaveTheRingAlone)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    Outcome outcome(*recorder);
    bool recordingSeen = false;
    QObject::connect(recorder.get(), &SegmentedRecorder::isRecordingChanged, [&](bool v) { recordingSeen |= v; });

    // A stop with no recording: nothing at all.
    recorder->stopRecording();
    settle(*recorder);
    EXPECT_FALSE(outcome.arrived());
    EXPECT_FALSE(outcome.sawExporting);

    // A recording with nothing buffered.
    recorder->startRecording(out.filePath("empty.mp4"));
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    EXPECT_TRUE(recordingSeen);
    EXPECT_EQ(outcome.error, "Nothing was buffered yet — wait a second after starting preview.");
    EXPECT_EQ(outcome.finishedCalls, 0);
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_FALSE(QFile::exists(out.filePath("empty.mp4")));

    // A destination that cannot be written: its folder is a file.
    Feeder feeder { *recorder, 30, false };
    feeder.feed(0, 100);
    QFile blocker(out.filePath("not-a-folder"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    recorder->startRecording(out.filePath("not-a-folder/clip.mp4"));
    feeder.feed(101, 120);
    recorder->stopRecording();
    outcome.errorCalls = 0;
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    EXPECT_EQ(outcome.error, "Could not write \"clip.mp4\": Not a directory");
    // The segments of the failed export stay in the ring.
    settle(*recorder);
    EXPECT_EQ(recorder->segmentsSnapshot().size(), 1u);
}

TEST(ClipExport, AnExportThatFailsHalfwayLeavesNoClipBehind)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 30);
    for (int i = 0; i <= 30 * 13; ++i)
        recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(20 * i), true));
    settle(*recorder);
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 2u);
    // A clip that was there before is replaced only by a complete one.
    const QString destination = out.filePath("d.mp4");

    // The disk takes a little and then refuses: the export fails in the middle of its writing.
    signal(SIGXFSZ, SIG_IGN);
    rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit tight = saved;
    tight.rlim_cur = 100000;
    setrlimit(RLIMIT_FSIZE, &tight);
    const ClipExporter::Result failed = ClipExporter::exportConcatenated(segments, ticks600(0), destination);
    setrlimit(RLIMIT_FSIZE, &saved);
    EXPECT_FALSE(failed.completed);
    EXPECT_EQ(failed.errorText, "Could not write \"d.mp4\": File too large");
    EXPECT_TRUE(QDir(out.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());

    // Unreadable segments are skipped without a word; the rest makes the clip.
    std::vector<Segment> withGone = segments;
    withGone.insert(withGone.begin() + 1, Segment { out.filePath("gone.mp4"), ticks600(3600), ticks600(3600) });
    const ClipExporter::Result ok = ClipExporter::exportConcatenated(withGone, ticks600(0), destination);
    EXPECT_TRUE(ok.completed) << ok.errorText.toStdString();
    const ClipProbe clip = ClipProbe::read(destination);
    EXPECT_EQ(clip.frames.size(), 360u);
    EXPECT_EQ(clip.decodeErrors, 0);
}

TEST(ClipExport, ASegmentWhoseIndexClaimsMillionsOfFramesStillMakesAClipOfItsOwnSize)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 30);
    for (int i = 0; i <= 30 * 6; ++i)
        recorder->ingest(IndexedFrames::frame(i, 256, 144, ticks600(20 * i)));
    settle(*recorder);
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 1u);

    // Damaged as a bad disk could leave it: the video track's first time-to-sample entry now counts
    // a hundred million frames, which its file cannot hold.
    QFile file(segments[0].url);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    const qint64 stts = file.readAll().indexOf("stts");
    ASSERT_GT(stts, 0);
    const quint32 count = qToBigEndian<quint32>(100'000'000);
    ASSERT_TRUE(file.seek(stts + 12));
    ASSERT_EQ(file.write(reinterpret_cast<const char*>(&count), sizeof count), qint64(sizeof count));
    file.close();

    const QString destination = out.filePath("d.mp4");
    const ClipExporter::Result result = ClipExporter::exportConcatenated(segments, ticks600(0), destination);
    ASSERT_TRUE(result.completed) << result.errorText.toStdString();
    EXPECT_LT(QFileInfo(destination).size(), 2 * QFileInfo(segments[0].url).size());
    const ClipProbe clip = ClipProbe::read(destination);
    EXPECT_EQ(clip.frames.size(), 180u);
    EXPECT_EQ(clip.decodeErrors, 0);
}

TEST(RecorderAudio, DropsAudioBeforeTheFirstFrameAndBuffersThatDoNotMoveForward)
{
    auto recorder = pacedRecorder(30, 30);
    recorder->setAudioEnabled(true);
    auto audioAt = [&](double seconds, int frames) {
        recorder->ingestAudio(IndexedFrames::tone(
            AudioBuffer::SampleFormat::Float32, 44100, 1, frames, MediaTime::fromSeconds(seconds, 44100)));
    };
    // Half a second of sound that begins just before the first frame: no segment is open yet.
    audioAt(-0.05, 22050);
    for (int i = 0; i <= 30 * 12; ++i) {
        const double t = i / 30.0;
        recorder->ingest(IndexedFrames::frame(i, 256, 144, MediaTime::fromSeconds(t, 600)));
        if (i >= 18 && i < 150) audioAt(t, 1470); // 0.6 s to 5.0 s, one buffer per frame
        // Second source, same time as the last buffer taken: dropped, although it is longer.
        if (i == 149) audioAt(t, 22050);
        if (i >= 198 && i < 300) audioAt(t, 1470); // 6.6 s to 10.0 s in the second segment
        // Second source one tick after the last one taken: it goes in.
        if (i == 299)
            recorder->ingestAudio(IndexedFrames::tone(AudioBuffer::SampleFormat::Float32, 44100, 1, 22050,
                MediaTime::fromSeconds(t, 44100) + MediaTime(1, 44100)));
    }
    settle(*recorder);
    const std::vector<Segment> segments = recorder->segmentsSnapshot();
    ASSERT_EQ(segments.size(), 2u);
    const ClipProbe first = ClipProbe::read(segments[0].url);
    const ClipProbe second = ClipProbe::read(segments[1].url);
    ASSERT_EQ(first.audioCodec, "aac");
    ASSERT_EQ(second.audioCodec, "aac");
    // Each segment's track runs its whole length, silent where no sound came; the tone sits where
    // its buffers belong.
    auto loud = [](const ClipProbe& p, bool first) {
        const auto at = first
            ? std::find_if(p.audio.begin(), p.audio.end(), [](float x) { return std::abs(x) > 0.1f; })
            : std::find_if(p.audio.rbegin(), p.audio.rend(), [](float x) { return std::abs(x) > 0.1f; }).base();
        return p.audioStart + double(at - p.audio.begin()) / 44100;
    };
    EXPECT_NEAR(first.audioStart, 0.0, 0.03);
    EXPECT_NEAR(first.audioStart + first.audioSeconds, 6.0, 0.03);
    EXPECT_NEAR(loud(first, true), 0.6, 0.01);
    // The longer buffer of the second source was dropped: the tone ends with the first source's.
    EXPECT_NEAR(loud(first, false), 149 / 30.0 + 1470.0 / 44100, 0.01);
    // And the one a tick later went in.
    EXPECT_NEAR(loud(second, false), 299 / 30.0 - 6.0 + 0.5, 0.01);
}

TEST(RecorderAudio, SoundStartsAtTheNextBoundaryAndTheClipGetsItsTrackFromThere)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 30);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30 };
    feeder.feed(0, 30);
    recorder->startRecording(out.filePath("e.mp4"));
    feeder.feed(31, 90);
    recorder->setAudioEnabled(true); // in the middle of the first segment: it stays silent
    feeder.feed(91, feeder.frameAt(10.0));
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");
    const ClipProbe clip = ClipProbe::read(out.filePath("e.mp4"));
    EXPECT_EQ(clip.audioCodec, "aac");
    EXPECT_EQ(clip.decodeErrors, 0);
    EXPECT_EQ(clip.frames.front().index, 0);
    EXPECT_EQ(clip.frames.back().index, feeder.frameAt(10.0));
    // The second segment lands 6.0 s into the clip, and its sound with it.
    EXPECT_NEAR(clip.audioStart, 6.0, 0.03);
    EXPECT_NEAR(clip.audioStart + clip.audioSeconds, 9.6, 0.06);
}

// A stop that comes while the segment rotated a moment before is still closing: the export waits
// for it instead of leaving a hole (or, here, almost the whole clip) out.
TEST(ClipExport, AStopRightAfterARotationWaitsForTheClosingSegment)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30, false };
    const int rotationFrame = feeder.frameAt(6.4); // 6.0 s after the first frame
    feeder.feed(0, feeder.frameAt(3.0));
    const QString destination = out.filePath("clip.mp4");
    recorder->startRecording(destination);
    feeder.feed(feeder.frameAt(3.0) + 1, rotationFrame - 1);
    recorder->waitUntilIdle();
    // The rotation and the stop back to back: the old segment's encoder is still draining.
    recorder->ingest(IndexedFrames::frame(rotationFrame, 256, 144, feeder.frameTime(rotationFrame)));
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    ASSERT_EQ(outcome.error, "");

    const ClipProbe clip = ClipProbe::read(destination);
    ASSERT_FALSE(clip.frames.empty());
    EXPECT_EQ(clip.frames.front().index, 0);
    EXPECT_EQ(clip.frames.back().index, rotationFrame);
    EXPECT_EQ(int(clip.frames.size()), rotationFrame + 1);
    EXPECT_EQ(clip.decodeErrors, 0);
}

// Two recordings started in the same second get the same name: the second clip takes a free name
// beside the first and never replaces it. And a stop followed at once by a start is a new
// recording, not a second stop.
TEST(ClipExport, AClipNeverReplacesAnotherAndAStartRightAfterAStopRecords)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30, false };
    const QString name = out.filePath("Display 1, Nov 23, 10-00-00.mp4");
    feeder.feed(0, 30);
    recorder->startRecording(name);
    feeder.feed(31, 60);
    recorder->stopRecording();
    // What a toggle reads next, before anything else has run: the clip is under way from the stop.
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_TRUE(recorder->isExporting());
    recorder->startRecording(name);
    EXPECT_TRUE(recorder->isRecording());
    ASSERT_TRUE(spinUntil([&] { return outcome.finishedCalls == 1; }));
    EXPECT_EQ(outcome.finished, name);
    const qint64 firstSize = QFileInfo(name).size();
    feeder.feed(61, 90);
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.finishedCalls == 2 && !recorder->isExporting(); }));
    EXPECT_EQ(outcome.finished, out.filePath("Display 1, Nov 23, 10-00-00 (2).mp4"));
    EXPECT_EQ(QFileInfo(name).size(), firstSize); // the first clip is as it was
    EXPECT_EQ(ClipProbe::read(outcome.finished).frames.back().index, 90);
    EXPECT_EQ(ClipExporter::freeName(name), out.filePath("Display 1, Nov 23, 10-00-00 (3).mp4"));

    // Two stops whose clips are written at the same time share the seconds before them: the first
    // to land must leave the other's segment files alone, and the export is over only when both are
    // in place, since whatever waits for it may throw the ring away. One pool thread, held until
    // both clips are queued, with a pause between them until the ring has taken the first one's
    // news: the second clip is read after the first has landed and the ring has let its files go.
    std::vector<int> landedWhenDone;
    QObject::connect(recorder.get(), &SegmentedRecorder::isExportingChanged, recorder.get(), [&](bool exporting) {
        if (!exporting) landedWhenDone.push_back(outcome.finishedCalls);
    });
    QThreadPool* pool = QThreadPool::globalInstance();
    const int threads = pool->maxThreadCount();
    pool->setMaxThreadCount(1);
    const auto restore = qScopeGuard([pool, threads] { pool->setMaxThreadCount(threads); });
    QSemaphore held;
    pool->start([&held] { held.acquire(); });
    recorder->startRecording(name);
    feeder.feed(91, 120);
    recorder->stopRecording();
    recorder->waitUntilIdle(); // its clip is queued
    pool->start([&recorder] { recorder->waitUntilIdle(); });
    recorder->startRecording(name);
    feeder.feed(121, 125);
    recorder->stopRecording();
    recorder->waitUntilIdle();
    held.release();
    ASSERT_TRUE(spinUntil([&] { return outcome.finishedCalls == 4 && !recorder->isExporting(); }))
        << outcome.finishedCalls << " clips, " << outcome.errorCalls << " errors (" << outcome.error.toStdString()
        << "), exporting " << recorder->isExporting();
    EXPECT_EQ(landedWhenDone, std::vector<int> { 4 });
    const ClipProbe last = ClipProbe::read(outcome.finished);
    ASSERT_FALSE(last.frames.empty());
    // As far back as the ring holds, into the seconds of the clip before it (what the second clip
    // held went with it).
    EXPECT_EQ(last.frames.front().index, 91);
    EXPECT_EQ(last.frames.back().index, 125);
}

// When no segment could be written at all (a full or unwritable temporary folder), the stop says
// why, instead of asking the user to wait.
TEST(ClipExport, NothingWrittenSaysWhyNotWait)
{
    QTemporaryDir out;
    auto recorder = pacedRecorder(30, 10);
    recorder->setWriterFactory([&](const QString&, std::shared_ptr<SegmentEncoder> encoder) {
        return std::make_unique<SegmentWriter>(out.filePath("no/such/folder/seg.mp4"), encoder);
    });
    Outcome outcome(*recorder);
    Feeder feeder { *recorder, 30, false };
    testing::internal::CaptureStderr();
    feeder.feed(0, 10);
    recorder->startRecording(out.filePath("clip.mp4"));
    feeder.feed(11, 20);
    recorder->stopRecording();
    ASSERT_TRUE(spinUntil([&] { return outcome.arrived() && !recorder->isExporting(); }));
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(
        outcome.error.toStdString(), testing::StartsWith("Nothing could be buffered: No such file or directory"));
    EXPECT_FALSE(QFile::exists(out.filePath("clip.mp4")));
}

// Under load the picture a segment opens with can be refused by a full encoder queue, so the
// segment's first picture comes some time after its start. The segment still lasts from its start
// to its end: the next one must follow it there, not overlap it (its key frame would be dropped
// and every picture after it would fail to decode).
TEST(ClipExport, ASegmentWhoseFirstPictureCameLateEndsWhereTheNextBegins)
{
    QTemporaryDir dir;
    auto encoder = std::make_shared<SegmentEncoder>();
    encoder->setExpectsMediaDataInRealTime(false);
    std::vector<Segment> segments;
    int index = 0;
    for (int s = 0; s < 3; ++s) {
        const MediaTime start = MediaTime::fromSeconds(100 + 2 * s, 600);
        const MediaTime end = MediaTime::fromSeconds(102 + 2 * s, 600);
        const QString url = dir.filePath(QStringLiteral("seg%1.mp4").arg(s));
        SegmentWriter writer(url, encoder);
        SegmentWriter::VideoSettings video;
        video.width = 256;
        video.height = 144;
        video.averageBitRate = 1000000;
        video.expectedFPS = 30;
        ASSERT_TRUE(writer.addVideoInput(video));
        ASSERT_TRUE(writer.startWriting());
        writer.startSession(start);
        for (int i = s == 1 ? 15 : 0; i < 60; ++i) // the middle one's first half second is missing
            ASSERT_TRUE(writer.append(IndexedFrames::frame(index++, 256, 144, start + MediaTime(i * 20, 600))));
        writer.endSession(end);
        writer.markAsFinished();
        ASSERT_EQ(writer.finishWriting(), SegmentWriter::Status::completed);
        segments.push_back({ url, start, end });
    }
    const ClipExporter::Result result
        = ClipExporter::exportConcatenated(segments, segments[0].startPTS, dir.filePath(QStringLiteral("clip.mp4")));
    ASSERT_TRUE(result.completed) << result.errorText.toStdString();
    const ClipProbe clip = ClipProbe::read(result.path);
    EXPECT_EQ(clip.decodeErrors, 0);
    ASSERT_EQ(clip.frames.size(), size_t(index));
    for (int i = 0; i < index; ++i)
        ASSERT_EQ(clip.frames[i].index, i);
    EXPECT_NEAR(clip.frames[60].seconds, 2.5, 1e-3); // where it came, after the first one's last picture
    EXPECT_NEAR(clip.frames[105].seconds, 4.0, 1e-3); // the last one starts on time
}

#include "ClipProbe.h"
#include "RecorderHarness.h"
#include "RingPlaces.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The save of a running recording: its path, its error, and what it said about its length.
struct Save {
    QString path, error, shortNote;

    void watch(SegmentedRecorder& recorder)
    {
        recorder.onFinished = [this](const QString& p) { path = p; };
        recorder.onError = [this](const QString& text) { error = text; };
        recorder.onClipShort = [this](const QString&, const QString& text) { shortNote = text; };
    }
    bool wait() const
    {
        return spinUntil([this] { return !path.isEmpty() || !error.isEmpty(); });
    }
};

// Frames at 10 a second with a grain that keeps the encoder near its bit rate. Faster than real
// time, but a segment's closing is over before the next segment ends, as it is live.
void feed(SegmentedRecorder& recorder, int from, int to)
{
    for (int i = from; i < to; ++i) {
        recorder.ingest(IndexedFrames::frame(i, 256, 144, ticks600(60 * i), true));
        if (i % 20 == 19) settle(recorder);
    }
    settle(recorder);
}

// Every frame of the clip follows the one before: nothing was spliced out.
void expectUnbroken(const ClipProbe& clip)
{
    ASSERT_FALSE(clip.frames.empty());
    EXPECT_EQ(clip.decodeErrors, 0);
    for (size_t f = 1; f < clip.frames.size(); ++f)
        ASSERT_EQ(clip.frames[f].index, clip.frames[f - 1].index + 1)
            << "a jump from " << clip.frames[f - 1].index << " at " << clip.frames[f].seconds << " s";
}

} // namespace

TEST(RingDisk, AFullDiskKeepsTheNewestSecondsSaysSoAndNeverSplicesAClip)
{
    SmallDisk disk(3 << 20);
    if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs needs root";
    QTemporaryDir clips;
    // Every place the ring may go is on the small disk.
    QDir().mkpath(disk.path() + "/tmp");
    ScopedEnv runtime("XDG_RUNTIME_DIR", disk.path());
    ScopedEnv cache("XDG_CACHE_HOME", disk.path() + "/cache");
    ScopedEnv tmp("TMPDIR", disk.path() + "/tmp");

    // A minute asked for, at 1 Mb/s: about 8 MB, and the disk holds 3.
    auto recorder = pacedRecorder(10, 60);
    Save save;
    save.watch(*recorder);
    feed(*recorder, 0, 600);
    EXPECT_EQ(recorder->bufferProblem(), SegmentedRecorder::diskFullCause);
    // What the ring shows is what lies on disk, up to now, and that is the newest seconds.
    const std::vector<Segment> kept = recorder->segmentsSnapshot();
    ASSERT_FALSE(kept.empty());
    for (const Segment& s : kept)
        EXPECT_TRUE(QFileInfo::exists(s.url)) << s.url.toStdString();
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 59.9 - kept.front().startPTS.seconds());
    EXPECT_LT(recorder->bufferedSeconds(), 30.0);
    EXPECT_GT(recorder->bufferedSeconds(), 6.0);

    recorder->startRecording(clips.filePath("full.mp4"));
    feed(*recorder, 600, 620);
    recorder->stopRecording();
    ASSERT_TRUE(save.wait());
    ASSERT_TRUE(save.error.isEmpty()) << save.error.toStdString();
    const QRegularExpressionMatch said
        = QRegularExpression(R"(^Saved (\d+) s of the 62 s asked: the buffer's disk is full\.$)").match(save.shortNote);
    ASSERT_TRUE(said.hasMatch()) << save.shortNote.toStdString();
    const ClipProbe clip = ClipProbe::read(save.path);
    ASSERT_NO_FATAL_FAILURE(expectUnbroken(clip));
    EXPECT_EQ(clip.frames.back().index, 619);
    // The seconds it names are the clip's.
    EXPECT_NEAR(said.captured(1).toDouble(), 0.1 * (619 - clip.frames.front().index), 1.0);

    // Something else takes the disk: no segment can be written, the ring claims nothing and says
    // why, and a save says why there is nothing rather than "wait a second".
    QFile ballast(disk.path() + "/ballast");
    ASSERT_TRUE(ballast.open(QIODevice::WriteOnly));
    const QByteArray block(64 * 1024, 'x');
    while (ballast.write(block) == block.size() && ballast.flush()) { }
    ballast.close();
    save = {};
    save.watch(*recorder);
    feed(*recorder, 620, 720);
    EXPECT_EQ(recorder->bufferProblem(), SegmentedRecorder::diskFullCause);
    EXPECT_TRUE(recorder->segmentsSnapshot().empty());
    EXPECT_LT(recorder->bufferedSeconds(), 6.0);
    recorder->startRecording(clips.filePath("nothing.mp4"));
    feed(*recorder, 720, 730);
    recorder->stopRecording();
    ASSERT_TRUE(save.wait());
    EXPECT_TRUE(save.error.startsWith("Nothing could be buffered: No space left on device (in "))
        << save.error.toStdString();

    // Room again: the ring fills and the problem is over.
    ASSERT_TRUE(QFile::remove(disk.path() + "/ballast"));
    feed(*recorder, 730, 860);
    EXPECT_TRUE(recorder->bufferProblem().isEmpty()) << recorder->bufferProblem().toStdString();
    EXPECT_GE(recorder->bufferedSeconds(), 6.0);
}

TEST(RingDisk, ASegmentLostInTheMiddleCutsTheClipAfterItAndTheSaveSaysSo)
{
    QTemporaryDir temp;
    ScopedEnv runtime("XDG_RUNTIME_DIR", temp.path());
    auto recorder = pacedRecorder(10, 30);
    // The writer of the third segment cannot open: the stretch until the next frame is in no file.
    int opened = 0;
    recorder->setWriterFactory([&](const QString& path, std::shared_ptr<SegmentEncoder> encoder) {
        auto writer = std::make_unique<SegmentWriter>(++opened == 3 ? temp.filePath("gone/seg.mp4") : path, encoder);
        writer->setExpectsMediaDataInRealTime(false);
        return writer;
    });
    Save save;
    save.watch(*recorder);
    feed(*recorder, 0, 200);
    // The 12 s frame found no writer; the next one opened the third segment.
    EXPECT_DOUBLE_EQ(recorder->bufferedSeconds(), 19.9 - 12.1);
    recorder->startRecording(temp.filePath("clips/gap.mp4"));
    feed(*recorder, 200, 210);
    recorder->stopRecording();
    ASSERT_TRUE(save.wait());
    ASSERT_TRUE(save.error.isEmpty()) << save.error.toStdString();
    EXPECT_EQ(save.shortNote,
        QStringLiteral("Saved 9 s of the 31 s asked: the buffer could not be written (No such file or directory)."));
    const ClipProbe clip = ClipProbe::read(save.path);
    ASSERT_NO_FATAL_FAILURE(expectUnbroken(clip));
    EXPECT_EQ(clip.frames.front().index, 121);
    EXPECT_EQ(clip.frames.back().index, 209);
}

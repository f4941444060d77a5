#include "recorder/SegmentWriter.h"

#include "ClipProbe.h"
#include "IndexedFrames.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

SegmentWriter::VideoSettings small(int fps = 30)
{
    SegmentWriter::VideoSettings s;
    s.width = 256;
    s.height = 144;
    s.averageBitRate = 1000000;
    s.expectedFPS = fps;
    return s;
}

MediaTime at(double seconds)
{
    return MediaTime::fromSeconds(seconds, 1'000'000'000);
}

} // namespace

TEST(SegmentWriter, WritesHevcAndAacThatDecodeFrameByFrame)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.mp4");
    SegmentWriter writer(path);
    writer.setExpectsMediaDataInRealTime(false);
    ASSERT_TRUE(writer.addVideoInput(small()));
    ASSERT_TRUE(writer.addAudioInput());
    ASSERT_TRUE(writer.startWriting()) << writer.error().toStdString();
    const double t0 = 1000.0;
    writer.startSession(at(t0));
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(writer.isReadyForMoreMediaData());
        ASSERT_TRUE(writer.append(IndexedFrames::frame(i, 320, 180, at(t0 + i / 30.0))));
        // 16-bit stereo at 48 kHz: converted, downmixed and resampled by the writer.
        const AudioBuffer b = IndexedFrames::tone(AudioBuffer::SampleFormat::Int16, 48000, 2, 1600, at(t0 + i / 30.0));
        ASSERT_TRUE(writer.isReadyForMoreAudioData());
        ASSERT_TRUE(writer.appendAudio(b));
    }
    writer.markAsFinished();
    EXPECT_FALSE(writer.append(IndexedFrames::frame(60, 256, 144, at(t0 + 2))));
    ASSERT_EQ(writer.finishWriting(), SegmentWriter::Status::completed) << writer.error().toStdString();

    const ClipProbe clip = ClipProbe::read(path);
    ASSERT_TRUE(clip.opened);
    EXPECT_EQ(clip.videoCodec, "hevc");
    EXPECT_EQ(clip.audioCodec, "aac");
    EXPECT_EQ(clip.audioSampleRate, 44100);
    EXPECT_EQ(clip.audioChannels, 1);
    EXPECT_EQ(clip.width, 256);
    EXPECT_EQ(clip.height, 144);
    EXPECT_EQ(clip.decodeErrors, 0);
    ASSERT_EQ(clip.frames.size(), 60u);
    for (int i = 0; i < 60; ++i) {
        EXPECT_EQ(clip.frames[i].index, i);
        EXPECT_NEAR(clip.frames[i].seconds, i / 30.0, 1e-3); // the session's start is the file's zero
    }
    EXPECT_NEAR(clip.audioStart, 0.0, 0.002);
    EXPECT_NEAR(clip.audioSeconds, 2.0, 0.03);
}

TEST(SegmentWriter, KeyFramesComeAtLeastOnceASecondWhateverTheFrameRate)
{
    QTemporaryDir dir;
    auto keyTimes = [&](const char* name, int expectedFPS, int realFPS) {
        SegmentWriter writer(dir.filePath(name));
        writer.setExpectsMediaDataInRealTime(false);
        writer.addVideoInput(small(expectedFPS));
        EXPECT_TRUE(writer.startWriting());
        writer.startSession(MediaTime(0, 600));
        for (int i = 0; i < realFPS * 4; ++i)
            if (writer.isReadyForMoreMediaData())
                writer.append(IndexedFrames::frame(i, 256, 144, MediaTime(i * 600 / realFPS, 600)));
        EXPECT_EQ(writer.finishWriting(), SegmentWriter::Status::completed);
        std::vector<double> keys;
        for (const auto& f : ClipProbe::read(dir.filePath(name)).frames)
            if (f.key) keys.push_back(f.seconds);
        return keys;
    };
    // Slower than expected: a frame count of expectedFPS would be 6 s; time decides instead.
    EXPECT_EQ(keyTimes("slow.mp4", 60, 10), (std::vector<double> { 0, 1, 2, 3 }));
    // Faster than expected: every expectedFPS frames.
    EXPECT_EQ(keyTimes("fast.mp4", 10, 20), (std::vector<double> { 0, 0.5, 1, 1.5, 2, 2.5, 3, 3.5 }));
}

TEST(SegmentWriter, RefusesWhatItCannotWriteAndStaysUsable)
{
    QTemporaryDir dir;
    // A file in the way: the writer is failed from the start.
    const QString taken = dir.filePath("taken.mp4");
    QFile(taken).open(QIODevice::WriteOnly);
    SegmentWriter blocked(taken);
    EXPECT_EQ(blocked.status(), SegmentWriter::Status::failed);
    EXPECT_TRUE(blocked.error().startsWith("a file already exists at "));
    EXPECT_FALSE(blocked.startWriting());

    // No folder: startWriting says why.
    SegmentWriter nowhere(dir.filePath("missing/a.mp4"));
    nowhere.addVideoInput(small());
    EXPECT_FALSE(nowhere.startWriting());
    EXPECT_EQ(nowhere.error(), "No such file or directory");

    // Frames before the session's start, or not after the last one, are left out; the rest is
    // written as usual.
    SegmentWriter writer(dir.filePath("b.mp4"));
    writer.setExpectsMediaDataInRealTime(false);
    writer.addVideoInput(small());
    EXPECT_FALSE(writer.append(IndexedFrames::frame(0, 256, 144, at(1)))); // not started
    ASSERT_TRUE(writer.startWriting());
    EXPECT_FALSE(writer.appendAudio(IndexedFrames::tone(AudioBuffer::SampleFormat::Float32, 44100, 1, 1024, at(1))));
    writer.startSession(at(1));
    writer.append(IndexedFrames::frame(100, 256, 144, at(0.9)));
    for (int i = 0; i < 10; ++i) {
        writer.isReadyForMoreMediaData();
        writer.append(IndexedFrames::frame(i, 256, 144, at(1 + i / 30.0)));
        if (i == 5) writer.append(IndexedFrames::frame(200, 256, 144, at(1 + 4 / 30.0)));
    }
    ASSERT_EQ(writer.finishWriting(), SegmentWriter::Status::completed);
    const ClipProbe clip = ClipProbe::read(dir.filePath("b.mp4"));
    ASSERT_EQ(clip.frames.size(), 10u);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(clip.frames[i].index, i);
    EXPECT_EQ(clip.audioCodec, "");
}

TEST(SegmentWriter, ALiveWriterDropsWhatItCannotTakeInsteadOfQueueing)
{
    QTemporaryDir dir;
    SegmentWriter writer(dir.filePath("live.mp4"));
    SegmentWriter::VideoSettings hd = small();
    hd.width = 1920;
    hd.height = 1080;
    writer.addVideoInput(hd);
    ASSERT_TRUE(writer.startWriting());
    writer.startSession(at(0));
    // A burst far faster than a 1080p encoder: the small queue fills and the rest is refused.
    // Two pictures in turn, so that every one is work for the encoder.
    const QImage pictures[]
        = { IndexedFrames::picture(1, 1920, 1080, true), IndexedFrames::picture(2, 1920, 1080, true) };
    int taken = 0, refused = 0;
    for (int i = 0; i < 40; ++i) {
        const bool ready = writer.isReadyForMoreMediaData();
        const bool appended = writer.append(VideoFrame { pictures[i % 2], at(i / 60.0) });
        // Room only grows between the two calls: the encoder may take one meanwhile.
        if (ready) {
            EXPECT_TRUE(appended);
        }
        (appended ? taken : refused)++;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GE(taken, 3); // the queue's room
    ASSERT_EQ(writer.finishWriting(), SegmentWriter::Status::completed);
    EXPECT_EQ(int(ClipProbe::read(dir.filePath("live.mp4")).frames.size()), taken);
}

namespace {

// The bounding box of the pixels that differ between two pictures of the same size.
QRect differenceOf(const QImage& a, const QImage& b)
{
    QRect box;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) box |= QRect(x, y, 1, 1);
    return box;
}

} // namespace

TEST(SegmentWriter, PicturesThatSayWhatChangedDecodeAsTheWholePictureWouldAfterDropsAndRepeats)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("changes.mp4");
    SegmentWriter writer(path);
    writer.setExpectsMediaDataInRealTime(false);
    ASSERT_TRUE(writer.addVideoInput(small()));
    ASSERT_TRUE(writer.startWriting()) << writer.error().toStdString();
    writer.startSession(at(0));
    // A stream numbering its frames and saying what each changed since the one before it. Frames
    // 10 and 20 never reach the writer (a full queue drops them): the next frame's changes are
    // about a picture the encoder never saw. Frame 30 is handed over twice, as a new segment does.
    std::vector<int> written;
    double t = 0;
    for (int i = 0; i < 40; ++i) {
        VideoFrame frame = IndexedFrames::frame(i, 256, 144, at(t));
        frame.changes.sequence = uint64_t(i + 1);
        frame.changes.known = i > 0;
        if (i > 0) frame.changes.rects = { differenceOf(IndexedFrames::picture(i - 1, 256, 144), frame.image) };
        if (i == 10 || i == 20) continue;
        ASSERT_TRUE(writer.append(frame));
        written.push_back(i);
        t += 1 / 30.0;
        if (i == 30) {
            frame.pts = at(t);
            ASSERT_TRUE(writer.append(frame));
            written.push_back(i);
            t += 1 / 30.0;
        }
    }
    writer.markAsFinished();
    ASSERT_EQ(writer.finishWriting(), SegmentWriter::Status::completed) << writer.error().toStdString();
    const ClipProbe clip = ClipProbe::read(path);
    ASSERT_EQ(clip.frames.size(), written.size());
    for (size_t k = 0; k < written.size(); ++k)
        EXPECT_EQ(clip.frames[k].index, written[k]) << "picture " << k;
}

#include "recorder/SegmentWriter.h"

#include "ClipProbe.h"
#include "IndexedFrames.h"

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

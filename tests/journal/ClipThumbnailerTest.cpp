#include "journal/ClipThumbnailer.h"

#include "recorder/ClipExporter.h"
#include "recorder/IndexedFrames.h"
#include "recorder/SegmentWriter.h"
#include "support/EventLoop.h"

#include <QFile>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

namespace {

constexpr int fps = 10;
constexpr double sourceStart = 100.0;

MediaTime at(double seconds)
{
    return MediaTime::fromSeconds(seconds, 600);
}

SegmentWriter::VideoSettings settings()
{
    SegmentWriter::VideoSettings s;
    s.width = 320;
    s.height = 180;
    s.averageBitRate = 1'000'000;
    s.expectedFPS = fps; // a key frame every second
    return s;
}

// A segment of `frames` indexed pictures at 10 a second from sourceStart; with `finish` false the
// writer is dropped midway, as a crash would leave it.
QString writeSegment(const QString& path, int frames, bool finish = true)
{
    SegmentWriter writer(path);
    writer.setExpectsMediaDataInRealTime(false);
    if (!writer.addVideoInput(settings()) || !writer.startWriting()) return {};
    writer.startSession(at(sourceStart));
    for (int i = 0; i < frames; ++i)
        writer.append(IndexedFrames::frame(i, 320, 180, at(sourceStart + double(i) / fps)));
    if (!finish) return path;
    writer.endSession(at(sourceStart + double(frames) / fps));
    writer.markAsFinished();
    return writer.finishWriting() == SegmentWriter::Status::completed ? path : QString();
}

// Where the media data of an MP4 begins: the offset of its top-level "mdat" box, -1 if none.
qint64 mediaDataOffset(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return -1;
    for (qint64 at = 0; at + 8 <= file.size();) {
        file.seek(at);
        const QByteArray header = file.read(8);
        if (header.mid(4, 4) == "mdat") return at;
        const quint32 size
            = (quint8(header[0]) << 24) | (quint8(header[1]) << 16) | (quint8(header[2]) << 8) | quint8(header[3]);
        if (size < 8) return -1;
        at += size;
    }
    return -1;
}

int indexShown(const QImage& image)
{
    const QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
    return IndexedFrames::indexFromLuma(gray.constBits(), int(gray.bytesPerLine()), gray.width(), gray.height());
}

// A saved clip as the recorder makes it: one segment of five seconds joined from half a second in,
// so the clip starts with hidden frames before a key frame, and its index comes first.
class ClipThumbnails : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString segment = writeSegment(dir.filePath("segment.mp4"), 5 * fps);
        ASSERT_FALSE(segment.isEmpty());
        const ClipExporter::Result clip
            = ClipExporter::exportConcatenated({ Segment { segment, at(sourceStart), at(sourceStart + 5) } },
                at(sourceStart + 0.5), dir.filePath("clip.mp4"));
        ASSERT_TRUE(clip.completed) << clip.errorText.toStdString();
        good = QUrl::fromLocalFile(clip.path);
    }

    QTemporaryDir dir;
    QUrl good;
};

} // namespace

TEST_F(ClipThumbnails, TwoRequestsMakeOneJobWhoseMiddleFrameBothGet)
{
    std::atomic<int> jobs = 0;
    ClipThumbnailer thumbnailer([&jobs](const QUrl& url) {
        ++jobs;
        return ClipThumbnailer::generate(url);
    });
    QSignalSpy arrived(&thumbnailer, &ClipThumbnailer::cacheChanged);
    thumbnailer.startGenerate(good);
    thumbnailer.startGenerate(good);
    EXPECT_TRUE(thumbnailer.isInFlight(good));
    ASSERT_TRUE(spinUntil([&] { return thumbnailer.preview(good).has_value(); }, 30000));
    spinFor(200);
    EXPECT_EQ(jobs, 1);
    EXPECT_EQ(arrived.count(), 1);
    EXPECT_FALSE(thumbnailer.isInFlight(good));

    // 4.5 seconds long; the middle, 2.25 s into the clip, is 2.75 s into the source: frame 27.
    // A frame within the tolerance may stand in, but not the key frame two seconds in.
    const ClipThumbnailer::ClipPreview preview = *thumbnailer.preview(good);
    EXPECT_NEAR(preview.duration, 4.5, 0.05);
    EXPECT_EQ(preview.image.size(), QSize(320, 180));
    const int index = indexShown(preview.image);
    EXPECT_NEAR(double(index) / fps, 2.75, ClipThumbnailer::frameTolerance + 1e-6) << index;

    // A prune that keeps the clip keeps its preview; one without it drops it, and a new request
    // makes it again.
    thumbnailer.prune({ good });
    EXPECT_TRUE(thumbnailer.preview(good).has_value());
    thumbnailer.prune({ QUrl::fromLocalFile(dir.filePath("renamed.mp4")) });
    EXPECT_FALSE(thumbnailer.preview(good).has_value());
    thumbnailer.startGenerate(good);
    ASSERT_TRUE(spinUntil([&] { return thumbnailer.preview(good).has_value(); }, 30000));
    EXPECT_EQ(jobs, 2);
}

TEST_F(ClipThumbnails, DamagedFilesGiveNothingAndTheCacheStaysUsable)
{
    // The clip cut off in its last second, after its middle picture, as a full disk or a copy in
    // progress leaves it: the index is whole and points past the end.
    const QString cut = dir.filePath("cut.mp4");
    ASSERT_TRUE(QFile::copy(good.toLocalFile(), cut));
    const qint64 media = mediaDataOffset(cut);
    ASSERT_GT(media, 0);
    QFile cutFile(cut);
    ASSERT_TRUE(cutFile.resize(media + (cutFile.size() - media) * 8 / 10));
    // A segment whose writer never finished: no index at all.
    const QString unfinished = writeSegment(dir.filePath("unfinished.mp4"), 3 * fps, false);
    // Noise under an MP4's name.
    QFile noise(dir.filePath("noise.mp4"));
    ASSERT_TRUE(noise.open(QIODevice::WriteOnly));
    QByteArray bytes(256 * 1024, '\0');
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
    noise.write(bytes);
    noise.close();

    const QList<QUrl> damaged = { QUrl::fromLocalFile(cut), QUrl::fromLocalFile(unfinished),
        QUrl::fromLocalFile(noise.fileName()), QUrl::fromLocalFile(dir.filePath("missing.mp4")) };
    ClipThumbnailer thumbnailer;
    for (const QUrl& url : damaged)
        thumbnailer.startGenerate(url);
    thumbnailer.startGenerate(good);
    ASSERT_TRUE(spinUntil(
        [&] {
            return thumbnailer.preview(good).has_value()
                && std::none_of(
                    damaged.begin(), damaged.end(), [&](const QUrl& u) { return thumbnailer.isInFlight(u); });
        },
        30000));
    for (const QUrl& url : damaged)
        EXPECT_FALSE(thumbnailer.preview(url).has_value()) << url.fileName().toStdString();

    // Nothing was cached, so the next request tries again, and fails again.
    thumbnailer.startGenerate(damaged.front());
    EXPECT_TRUE(thumbnailer.isInFlight(damaged.front()));
    ASSERT_TRUE(spinUntil([&] { return !thumbnailer.isInFlight(damaged.front()); }, 30000));
    EXPECT_FALSE(thumbnailer.preview(damaged.front()).has_value());
}

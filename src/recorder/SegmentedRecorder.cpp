#include "recorder/SegmentedRecorder.h"

#include "core/Log.h"
#include "recorder/SegmentWriter.h"

#include <QDir>
#include <QUuid>

namespace {

QString makeSegmentsDir()
{
    const QString dir = QDir::tempPath() + QStringLiteral("/Velotape2/segments-")
        + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
    QDir().mkpath(dir);
    return dir;
}

} // namespace

SegmentedRecorder::SegmentedRecorder(QObject* parent)
    : QObject(parent)
    , segmentsDir(makeSegmentsDir())
    , anchor(std::make_shared<Anchor>())
{
    anchor->recorder = this;
    writerFactory = [](const QString& path) { return std::make_unique<SegmentWriter>(path); };
}

SegmentedRecorder::~SegmentedRecorder()
{
    {
        std::lock_guard lock(anchor->mutex);
        anchor->recorder = nullptr;
    }
    queue.sync([] {});
    utilityPool.waitForDone();
    currentWriter.reset();
    QDir(segmentsDir).removeRecursively();
}

void SegmentedRecorder::onQueue(const std::weak_ptr<Anchor>& weak, std::function<void(SegmentedRecorder&)> task)
{
    auto strong = weak.lock();
    if (!strong) return;
    std::lock_guard lock(strong->mutex);
    if (!strong->recorder) return;
    strong->recorder->queue.async([weak, task = std::move(task)] {
        auto a = weak.lock();
        if (!a) return;
        SegmentedRecorder* r = nullptr;
        {
            std::lock_guard lock(a->mutex);
            r = a->recorder;
        }
        if (r) task(*r);
    });
}

void SegmentedRecorder::onMain(const std::weak_ptr<Anchor>&, std::function<void(SegmentedRecorder&)>) { }

void SegmentedRecorder::configure(int, int, double, double, int) { }
void SegmentedRecorder::armBuffering() { }
void SegmentedRecorder::disarmBuffering() { }
void SegmentedRecorder::ingest(const VideoFrame& frame)
{
    onQueue(anchor, [frame](SegmentedRecorder& r) { r.appendFrame(frame); });
}
void SegmentedRecorder::ingestAudio(const AudioBuffer& buffer)
{
    onQueue(anchor, [buffer](SegmentedRecorder& r) { r.appendAudio(buffer); });
}
void SegmentedRecorder::setAudioEnabled(bool) { }
void SegmentedRecorder::startRecording(const QString&) { }
void SegmentedRecorder::stopRecording() { }
void SegmentedRecorder::setWriterFactory(SegmentWriterFactory) { }
void SegmentedRecorder::waitForQueue(const std::function<void()>& task)
{
    queue.sync(task ? task : [] {});
}
std::vector<Segment> SegmentedRecorder::segmentsSnapshot()
{
    return {};
}
void SegmentedRecorder::appendFrame(const VideoFrame&) { }
void SegmentedRecorder::appendAudio(const AudioBuffer&) { }
void SegmentedRecorder::startNewSegment(const MediaTime&) { }
void SegmentedRecorder::rotateSegmentAsync(const MediaTime&) { }
void SegmentedRecorder::finalizeCurrentSegmentSync() { }
void SegmentedRecorder::evictOldSegments() { }
void SegmentedRecorder::stopRecordingOnQueue() { }
void SegmentedRecorder::removeExportedSegments(const std::vector<Segment>&) { }
void SegmentedRecorder::reportError(const QString&) { }
void SegmentedRecorder::exportConcatenated(std::weak_ptr<Anchor>, std::vector<Segment>, MediaTime, QString) { }
void SegmentedRecorder::setBuffering(bool) { }
void SegmentedRecorder::setRecording(bool) { }
void SegmentedRecorder::setCurrentDuration(double) { }
void SegmentedRecorder::setBufferedSeconds(double) { }
void SegmentedRecorder::setExporting(bool) { }

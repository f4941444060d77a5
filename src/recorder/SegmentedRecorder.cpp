#include "recorder/SegmentedRecorder.h"

#include "core/Log.h"
#include "recorder/ClipExporter.h"
#include "recorder/SegmentWriter.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

QString shortUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
}

QString orQuestionMark(const QString& text)
{
    return text.isEmpty() ? QStringLiteral("?") : text;
}

} // namespace

SegmentedRecorder::SegmentedRecorder(QObject* parent)
    : QObject(parent)
    , segmentsDir(segmentFolder.path())
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
    // Work from here on finds the recorder gone; what is running now finishes first.
    queue.sync([] {});
    utilityPool.waitForDone();
    currentWriter.reset();
    segmentFolder.remove();
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
        SegmentedRecorder* recorder = nullptr;
        {
            std::lock_guard lock(a->mutex);
            recorder = a->recorder;
        }
        // The destructor waits for a running task, so the recorder outlives this call.
        if (recorder) task(*recorder);
    });
}

void SegmentedRecorder::onMain(const std::weak_ptr<Anchor>& weak, std::function<void(SegmentedRecorder&)> task)
{
    auto strong = weak.lock();
    if (!strong) return;
    std::lock_guard lock(strong->mutex);
    SegmentedRecorder* recorder = strong->recorder;
    if (!recorder) return;
    // A queued call dies with its receiver, so the raw pointer is safe when it runs.
    QMetaObject::invokeMethod(
        recorder, [recorder, task = std::move(task)] { task(*recorder); }, Qt::QueuedConnection);
}

// ---- public operations (any thread) ----

void SegmentedRecorder::configure(int width, int height, double bitrateMbps, double bufferSecs, int fps)
{
    onQueue(anchor, [=](SegmentedRecorder& r) {
        r.targetWidth = std::max(2, width - width % 2);
        r.targetHeight = std::max(2, height - height % 2);
        // Cut to an integer; out-of-range and NaN inputs (a hand-edited settings file) end at a bound.
        const double bits = std::isnan(bitrateMbps) ? 0.0 : std::clamp(bitrateMbps * 1e6, 0.0, 1e12);
        r.bitrate = std::max<int64_t>(static_cast<int64_t>(bits), 1000000);
        r.expectedFPS = std::max(1, fps);
        r.bufferSeconds = std::max(1.0, bufferSecs);
    });
}

void SegmentedRecorder::armBuffering()
{
    onMain(anchor, [](SegmentedRecorder& r) { r.setBuffering(true); });
}

void SegmentedRecorder::disarmBuffering()
{
    onQueue(anchor, [](SegmentedRecorder& r) {
        r.finalizeCurrentSegmentSync();
        for (const Segment& s : r.completedSegments)
            QFile::remove(s.url);
        r.completedSegments.clear();
        r.recordingStartPTS.reset();
        r.destinationURL.reset();
        onMain(r.anchor, [](SegmentedRecorder& m) {
            m.setBuffering(false);
            m.setRecording(false);
            m.setCurrentDuration(0);
            m.setBufferedSeconds(0);
        });
    });
}

void SegmentedRecorder::ingest(const VideoFrame& frame)
{
    onQueue(anchor, [frame](SegmentedRecorder& r) { r.appendFrame(frame); });
}

void SegmentedRecorder::ingestAudio(const AudioBuffer& buffer)
{
    onQueue(anchor, [buffer](SegmentedRecorder& r) { r.appendAudio(buffer); });
}

void SegmentedRecorder::setAudioEnabled(bool enabled)
{
    onQueue(anchor, [enabled](SegmentedRecorder& r) { r.audioEnabled = enabled; });
}

void SegmentedRecorder::startRecording(const QString& destination)
{
    onQueue(anchor, [destination](SegmentedRecorder& r) {
        r.destinationURL = destination;
        r.recordingStartPTS = r.latestPTS;
        onMain(r.anchor, [](SegmentedRecorder& m) {
            m.setRecording(true);
            m.setCurrentDuration(0);
        });
    });
}

void SegmentedRecorder::stopRecording()
{
    onQueue(anchor, [](SegmentedRecorder& r) { r.stopRecordingOnQueue(); });
}

void SegmentedRecorder::setWriterFactory(SegmentWriterFactory factory)
{
    onQueue(anchor, [factory = std::move(factory)](SegmentedRecorder& r) { r.writerFactory = factory; });
}

void SegmentedRecorder::waitUntilIdle()
{
    queue.sync([] {});
    // Closings report back through the queue; once the pool is idle their reports are queued.
    utilityPool.waitForDone();
    queue.sync([] {});
}

std::vector<Segment> SegmentedRecorder::segmentsSnapshot()
{
    std::vector<Segment> copy;
    queue.sync([&] { copy = completedSegments; });
    return copy;
}

// ---- the ring (queue) ----

void SegmentedRecorder::appendFrame(const VideoFrame& frame)
{
    const MediaTime pts = frame.pts;
    if (!pts.isValid() || !pts.isNumeric()) return;
    // No check that time moves forward: the writer gets the frame as it is.
    latestPTS = pts;

    if (!currentWriter) startNewSegment(pts);
    if (currentSegmentStartPTS && (pts - *currentSegmentStartPTS).seconds() >= segmentDuration) rotateSegmentAsync(pts);

    // The camera composite belongs here (cameraProvider, drawn into a new picture); until that pass
    // exists the frame goes in as it came. Results are ignored: a refused frame is simply gone.
    if (currentWriter && currentWriter->hasVideoInput() && currentWriter->isReadyForMoreMediaData())
        currentWriter->append(frame);

    evictOldSegments();

    MediaTime earliest = pts;
    if (!completedSegments.empty())
        earliest = completedSegments.front().startPTS;
    else if (currentSegmentStartPTS)
        earliest = *currentSegmentStartPTS;
    double seconds = (pts - earliest).seconds();
    if (!(seconds > 0)) seconds = 0; // also NaN
    seconds = std::min(seconds, bufferSeconds);
    onMain(anchor, [seconds](SegmentedRecorder& m) { m.setBufferedSeconds(seconds); });

    if (recordingStartPTS) {
        const double length = std::max(0.0, (pts - *recordingStartPTS).seconds());
        onMain(anchor, [length](SegmentedRecorder& m) { m.setCurrentDuration(length); });
    }
}

void SegmentedRecorder::startNewSegment(const MediaTime& startingAt)
{
    const QString url = segmentsDir + QStringLiteral("/seg-") + shortUuid() + QStringLiteral(".mp4");
    std::shared_ptr<SegmentWriter> writer = writerFactory ? writerFactory(url) : nullptr;
    if (!writer || writer->status() == SegmentWriter::Status::failed) {
        logLine(QStringLiteral("Segment writer init failed: ") + orQuestionMark(writer ? writer->error() : QString()));
        return;
    }
    SegmentWriter::VideoSettings video;
    video.width = targetWidth;
    video.height = targetHeight;
    video.averageBitRate = bitrate;
    video.expectedFPS = expectedFPS;
    writer->addVideoInput(video);
    if (audioEnabled) writer->addAudioInput(); // refused: the segment goes on silent
    if (!writer->startWriting()) {
        logLine(QStringLiteral("startWriting failed: ") + orQuestionMark(writer->error()));
        return;
    }
    writer->startSession(startingAt);

    currentWriter = std::move(writer);
    currentSegmentURL = url;
    currentSegmentStartPTS = startingAt;
    hasSessionStarted = true;
    lastAudioPTS = MediaTime::invalid();
}

void SegmentedRecorder::rotateSegmentAsync(const MediaTime& startingAt)
{
    if (!currentWriter || !currentWriter->hasVideoInput() || !currentSegmentURL || !currentSegmentStartPTS) return;
    std::shared_ptr<SegmentWriter> writer = std::move(currentWriter);
    const QString url = *currentSegmentURL;
    const MediaTime start = *currentSegmentStartPTS;
    // appendFrame has just stored the new frame's time: the old segment ends where the new begins.
    const MediaTime end = latestPTS.isValid() ? latestPTS : start;
    currentWriter.reset();
    currentSegmentURL.reset();
    currentSegmentStartPTS.reset();

    // The new writer opens before the old one starts to close, so no frame falls between them.
    startNewSegment(startingAt);

    // Closing waits for the encoder to drain: never on `queue`, whose frames must not stall.
    std::weak_ptr<Anchor> weak = anchor;
    ++closingsInFlight;
    utilityPool.start([weak, writer, url, start, end] {
        writer->markAsFinished();
        const SegmentWriter::Status status = writer->finishWriting();
        const QString error = writer->error();
        onQueue(weak, [=](SegmentedRecorder& r) {
            --r.closingsInFlight;
            if (status == SegmentWriter::Status::completed) {
                // A stop may have closed a later segment in the meantime: keep the ring in time order.
                const auto at = std::upper_bound(r.completedSegments.begin(), r.completedSegments.end(), start,
                    [](const MediaTime& t, const Segment& s) { return t < s.startPTS; });
                r.completedSegments.insert(at, Segment { url, start, end });
            } else {
                logLine(QStringLiteral("Segment failed: ") + orQuestionMark(error));
                QFile::remove(url);
            }
            r.startPendingExportsIfReady();
        });
    });
}

void SegmentedRecorder::finalizeCurrentSegmentSync()
{
    if (currentWriter && currentWriter->hasVideoInput() && currentSegmentURL && currentSegmentStartPTS) {
        const QString url = *currentSegmentURL;
        const MediaTime start = *currentSegmentStartPTS;
        const MediaTime end = latestPTS.isValid() ? latestPTS : start;
        currentWriter->markAsFinished();
        // The one place where `queue` waits: frames that come meanwhile queue up behind this.
        const SegmentWriter::Status status = currentWriter->finishWriting();
        if (status == SegmentWriter::Status::completed) {
            completedSegments.push_back(Segment { url, start, end });
        } else {
            logLine(QStringLiteral("Segment failed: ") + orQuestionMark(currentWriter->error()));
            QFile::remove(url);
        }
    } else {
        return;
    }
    currentWriter.reset();
    currentSegmentURL.reset();
    currentSegmentStartPTS.reset();
}

void SegmentedRecorder::evictOldSegments()
{
    // While recording nothing goes, however long it runs. 6.0 matches the length of one segment:
    // the oldest kept segment then still reaches a full bufferSeconds back.
    const double limit = recordingStartPTS ? std::numeric_limits<double>::infinity() : bufferSeconds + 6.0;
    while (!completedSegments.empty()) {
        const Segment& oldest = completedSegments.front();
        const double age = (latestPTS - oldest.endPTS).seconds();
        if (!(limit < age)) break; // exactly at the limit, or not a number: it stays
        QFile::remove(oldest.url);
        completedSegments.erase(completedSegments.begin());
    }
}

void SegmentedRecorder::appendAudio(const AudioBuffer& buffer)
{
    if (!currentWriter || !currentWriter->hasAudioInput() || !currentWriter->isReadyForMoreAudioData()
        || !currentSegmentStartPTS)
        return;
    const MediaTime pts = buffer.pts;
    if (!pts.isValid() || !pts.isNumeric()) return;
    if (pts < *currentSegmentStartPTS) return;
    // Two sources share one track: the one that lags behind loses its buffer, nothing is reordered.
    if (lastAudioPTS.isValid() && !(pts > lastAudioPTS)) return;
    currentWriter->appendAudio(buffer);
    lastAudioPTS = pts;
}

// ---- recording and export ----

void SegmentedRecorder::stopRecordingOnQueue()
{
    if (!recordingStartPTS || !destinationURL) {
        onMain(anchor, [](SegmentedRecorder& m) { m.setRecording(false); });
        return;
    }
    finalizeCurrentSegmentSync();
    pendingExports.push_back(PendingExport {
        *recordingStartPTS - MediaTime::fromSeconds(bufferSeconds, 600), latestPTS, *destinationURL });
    recordingStartPTS.reset();
    destinationURL.reset();
    onMain(anchor, [](SegmentedRecorder& m) {
        m.setRecording(false);
        m.setExporting(true);
    });
    // A segment rotated just before the stop may still be closing; the export waits for it rather
    // than leave a hole in the clip. Closings take a fraction of a second.
    startPendingExportsIfReady();
}

void SegmentedRecorder::startPendingExportsIfReady()
{
    if (closingsInFlight > 0) return;
    for (const PendingExport& job : std::exchange(pendingExports, {})) {
        std::vector<Segment> chosen;
        for (const Segment& s : completedSegments)
            if (s.endPTS > job.trimFromPTS && !(s.startPTS > job.lastPTS)) chosen.push_back(s);
        std::weak_ptr<Anchor> weak = anchor;
        QThreadPool::globalInstance()->start([weak, chosen, job] {
            if (weak.expired()) return;
            exportConcatenated(weak, chosen, job.trimFromPTS, job.destination);
        });
    }
}

void SegmentedRecorder::exportConcatenated(const std::weak_ptr<Anchor>& weak, const std::vector<Segment>& segments,
    const MediaTime& trimFromPTS, const QString& destination)
{
    const ClipExporter::Result result = ClipExporter::exportConcatenated(segments, trimFromPTS, destination);
    if (result.completed) {
        onQueue(weak, [segments, destination](SegmentedRecorder& r) {
            r.removeExportedSegments(segments);
            onMain(r.anchor, [destination](SegmentedRecorder& m) {
                if (m.onFinished) m.onFinished(destination);
                m.setExporting(false);
            });
        });
        return;
    }
    reportError(weak, result.errorText);
    onMain(weak, [](SegmentedRecorder& m) { m.setExporting(false); });
}

void SegmentedRecorder::removeExportedSegments(const std::vector<Segment>& exported)
{
    for (const Segment& s : exported)
        QFile::remove(s.url);
    std::erase_if(completedSegments, [&](const Segment& s) {
        return std::any_of(exported.begin(), exported.end(), [&](const Segment& e) { return e.url == s.url; });
    });
}

void SegmentedRecorder::reportError(const std::weak_ptr<Anchor>& weak, const QString& text)
{
    onMain(weak, [text](SegmentedRecorder& m) {
        if (m.onError) m.onError(text);
    });
}

// ---- observable properties (main thread) ----

void SegmentedRecorder::setBuffering(bool value)
{
    if (buffering == value) return;
    buffering = value;
    emit isBufferingChanged(value);
}

void SegmentedRecorder::setRecording(bool value)
{
    if (recording == value) return;
    recording = value;
    emit isRecordingChanged(value);
}

void SegmentedRecorder::setCurrentDuration(double value)
{
    if (duration == value) return;
    duration = value;
    emit currentDurationChanged(value);
}

void SegmentedRecorder::setBufferedSeconds(double value)
{
    if (buffered == value) return;
    buffered = value;
    emit bufferedSecondsChanged(value);
}

void SegmentedRecorder::setExporting(bool value)
{
    if (exporting == value) return;
    exporting = value;
    emit isExportingChanged(value);
}

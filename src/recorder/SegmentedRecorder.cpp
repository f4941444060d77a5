#include "recorder/SegmentedRecorder.h"

#include "core/Log.h"
#include "recorder/CameraComposite.h"
#include "recorder/CameraCompositor.h"
#include "recorder/ClipExporter.h"
#include "recorder/SegmentWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
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
    , clock([] { return MediaTime::fromNanoseconds(monotonicNanoseconds()); })
    , anchor(std::make_shared<Anchor>(std::in_place, this))
{
    // Placed for the default rates; configure moves it while nothing is in it yet.
    segmentFolder = std::make_unique<SegmentFolder>(ringBytes());
    *segmentsDir.lock() = segmentFolder->path();
    folderThere = segmentFolder->exists();
    writerFactory = [](const QString& path, std::shared_ptr<SegmentEncoder> shared) {
        return std::make_unique<SegmentWriter>(path, std::move(shared));
    };
    encoder = std::make_shared<SegmentEncoder>();
}

void SegmentedRecorder::setClock(Clock c)
{
    clock = std::move(c);
    const bool live = now().isNumeric();
    onQueue(anchor, [live](SegmentedRecorder& r) { r.awaitsSound = live; });
}

SegmentedRecorder::~SegmentedRecorder()
{
    clockTicker.stop();
    pictureTicker.stop();
    *anchor->lock() = nullptr;
    // Work from here on finds the recorder gone; what is running now finishes first.
    queue.sync([] {});
    utilityPool.waitForDone();
    currentWriter.reset();
    encoder.reset();
    segmentFolder->remove();
}

QString SegmentedRecorder::segmentsDirectory() const
{
    return *segmentsDir.lock();
}

void SegmentedRecorder::onQueue(const std::weak_ptr<Anchor>& weak, std::function<void(SegmentedRecorder&)> task)
{
    auto strong = weak.lock();
    if (!strong) return;
    auto recorder = strong->lock();
    if (!*recorder) return;
    (*recorder)->queue.async([weak, task = std::move(task)] {
        auto a = weak.lock();
        if (!a) return;
        SegmentedRecorder* const r = *a->lock();
        // The destructor waits for a running task, so the recorder outlives this call.
        if (r) task(*r);
    });
}

void SegmentedRecorder::onMain(const std::weak_ptr<Anchor>& weak, std::function<void(SegmentedRecorder&)> task)
{
    auto strong = weak.lock();
    if (!strong) return;
    auto locked = strong->lock();
    SegmentedRecorder* recorder = *locked;
    if (!recorder) return;
    // A queued call dies with its receiver, so the raw pointer is safe when it runs.
    QMetaObject::invokeMethod(
        recorder, [recorder, task = std::move(task)] { task(*recorder); }, Qt::QueuedConnection);
}

MediaTime SegmentedRecorder::now() const
{
    return clock ? clock() : MediaTime::invalid();
}

// ---- public operations ----

void SegmentedRecorder::configure(int width, int height, double bitrateMbps, double bufferSecs, int fps)
{
    onQueue(anchor, [=](SegmentedRecorder& r) {
        r.targetWidth = std::max(2, width - width % 2);
        r.targetHeight = std::max(2, height - height % 2);
        // Cut to an integer; out-of-range and NaN inputs (a hand-edited settings file) end at a bound.
        const double bits = std::isnan(bitrateMbps) ? 0.0 : std::clamp(bitrateMbps * 1e6, 0.0, 1e12);
        r.bitrate = std::max<int64_t>(static_cast<int64_t>(bits), 1000000);
        r.expectedFPS = std::max(1, fps);
        r.pictureRate = r.expectedFPS;
        // A day is more than any screen would want; beyond it the ring would grow without bound
        // and the time arithmetic would overflow.
        r.bufferSeconds = std::isnan(bufferSecs) ? 1.0 : std::clamp(bufferSecs, 1.0, 86400.0);
        r.relocateIfTooSmall();
    });
}

void SegmentedRecorder::armBuffering()
{
    setBuffering(true);
    clockTicker.start(std::chrono::milliseconds(clockTickMilliseconds), [this, c = clock] {
        const MediaTime t = c ? c() : MediaTime::invalid();
        if (t.isNumeric()) advanceClock(t);
    });
    updatePictureTicker();
}

void SegmentedRecorder::setKeepsFrameRate(bool on)
{
    const bool ending = keepsFrameRate && !on;
    keepsFrameRate = on;
    updatePictureTicker();
    // The overlay has gone (the camera switched off or lost): the last picture goes in once more as
    // it is now, or a still screen would keep the last bubble until the screen changes.
    const MediaTime t = now();
    if (ending && buffering && t.isNumeric())
        onQueue(anchor, [t](SegmentedRecorder& r) { r.repeatLastPicture(t, true); });
}

void SegmentedRecorder::updatePictureTicker()
{
    if (!buffering || !keepsFrameRate || !clock || !now().isNumeric()) return pictureTicker.stop();
    const auto interval = std::chrono::milliseconds(std::max(1, 1000 / std::max(1, pictureRate.load())));
    pictureTicker.start(interval, [this, c = clock] {
        const MediaTime t = c();
        if (!t.isNumeric() || repeatWaiting.exchange(true)) return;
        onQueue(anchor, [t](SegmentedRecorder& r) {
            r.repeatWaiting = false;
            r.repeatLastPicture(t, false);
        });
    });
}

void SegmentedRecorder::disarmBuffering()
{
    clockTicker.stop();
    pictureTicker.stop();
    // What the old ring still has on its way to this thread is stale from here on.
    ++mainGeneration;
    setBuffering(false);
    setRecording(false);
    setCurrentDuration(0);
    setBufferedSeconds(0);
    setBufferProblem({});
    onQueue(anchor, [](SegmentedRecorder& r) {
        // Everything of this ring goes: the open segment is abandoned unwritten, closings still
        // under way remove their files when they report back.
        ++r.ringGeneration;
        if (r.currentSegmentURL) QFile::remove(*r.currentSegmentURL);
        r.currentWriter.reset();
        r.currentSegmentURL.reset();
        r.currentSegmentStartPTS.reset();
        // The next stream may have another size or rate: its encoders start afresh.
        r.encoder = std::make_shared<SegmentEncoder>();
        r.lastFrame.reset();
        r.clockPTS = MediaTime::invalid();
        for (const Segment& s : r.completedSegments)
            r.discardSegmentFile(s.url);
        r.completedSegments.clear();
        r.recordingStartPTS.reset();
        r.destinationURL.reset();
        r.losses.clear();
        r.unwrittenSince.reset();
        r.shortOfRoom = false;
        r.setProblem({});
    });
}

void SegmentedRecorder::ingest(const VideoFrame& frame)
{
    // A ring that falls behind drops what it cannot take rather than hold pictures without bound.
    if (!frameBacklog.tryEnter()) {
        drops->add(DropCounters::Cause::ringBacklog);
        return;
    }
    onQueue(anchor, [frame](SegmentedRecorder& r) {
        r.frameBacklog.leave();
        r.appendFrame(frame);
    });
}

void SegmentedRecorder::ingestAudio(const AudioBuffer& buffer, AudioMixer::Input input)
{
    // As for frames: a queue that cannot keep up loses sound rather than gather it without bound.
    if (!audioBacklog.tryEnter()) {
        drops->add(DropCounters::Cause::audioBacklog);
        return;
    }
    onQueue(anchor, [buffer, input](SegmentedRecorder& r) {
        r.audioBacklog.leave();
        // Sound before the first picture is gone, and so is what a source gave then for later: the
        // mix starts once there is a clock to hold it to.
        if (!r.clockPTS.isNumeric()) return;
        switch (r.mixer.push(input, buffer)) {
        case AudioMixer::Pushed::taken:
            break;
        case AudioMixer::Pushed::late:
            r.countDrop(DropCounters::Cause::audioLate);
            break;
        case AudioMixer::Pushed::tooFarAhead:
            r.countDrop(DropCounters::Cause::audioAhead);
            break;
        }
    });
}

void SegmentedRecorder::endAudioInput(AudioMixer::Input input)
{
    onQueue(anchor, [input](SegmentedRecorder& r) { r.mixer.endInput(input); });
}

void SegmentedRecorder::advanceClock(const MediaTime& time)
{
    onQueue(anchor, [time](SegmentedRecorder& r) { r.advanceClockOnQueue(time); });
}

void SegmentedRecorder::setAudioEnabled(bool enabled)
{
    onQueue(anchor, [enabled](SegmentedRecorder& r) { r.audioEnabled = enabled; });
}

void SegmentedRecorder::startRecording(const QString& destination, std::chrono::nanoseconds earlier)
{
    // The mark is the moment of the press, taken here: the ring may be a few frames behind.
    MediaTime pressedAt = now();
    if (pressedAt.isNumeric() && earlier.count() > 0)
        pressedAt = pressedAt - MediaTime::fromNanoseconds(earlier.count());
    setRecording(true);
    setCurrentDuration(0);
    setDroppedFrames(0);
    onQueue(anchor, [destination, pressedAt](SegmentedRecorder& r) {
        r.destinationURL = destination;
        r.recordingStartPTS = pressedAt.isNumeric() ? pressedAt : r.latestPTS;
        r.dropsAtRecordingStart = r.drops->snapshot();
    });
}

void SegmentedRecorder::stopRecording()
{
    const MediaTime pressedAt = now();
    // Counted as under way from this moment, so that nothing which waits for the clip (a restart of
    // the stream that would throw the ring away) slips in before the queue has taken the stop.
    const bool counted = recording;
    setRecording(false);
    if (counted) beginExport();
    onQueue(anchor, [pressedAt, counted](SegmentedRecorder& r) { r.stopRecordingOnQueue(pressedAt, counted); });
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
    lastFrame = frame;
    ticksWithoutScreenFrame = 0;
    moveClockTo(pts);

    if (!currentWriter) {
        startNewSegment(pts);
    } else if (currentSegmentStartPTS) {
        // A segment ends on its first frame 6 s in, which opens the next one as its key frame; or
        // sooner, in its last second, on a frame that is a key frame anyway. Key frames come once
        // a second, and a capture clock's jitter moves them ahead a frame at a time: the last one
        // of a segment would otherwise come a few frames before the next segment's first, and two
        // key frames so close together (each costs the encoder about three pictures) are more than
        // its queue absorbs under full motion.
        const double age = (pts - *currentSegmentStartPTS).seconds();
        if (age >= segmentDuration || (age > segmentDuration - 1.0 && currentWriter->isKeyFrameDue(pts)))
            rotateSegmentAsync(pts);
    }
    deliverFrame(frame);
    evictOldSegments();
    checkFolder();
    publishClock();
}

void SegmentedRecorder::advanceClockOnQueue(const MediaTime& time)
{
    // Only a ring that has seen a picture has anything to hold on to.
    if (!lastFrame || !time.isNumeric() || (clockPTS.isNumeric() && time <= clockPTS)) return;
    moveClockTo(time);
    if (!currentWriter) {
        // A writer that could not be made is tried again with every tick, as with every frame.
        startSegmentWithLastPicture(time);
    } else if (currentSegmentStartPTS && (time - *currentSegmentStartPTS).seconds() >= segmentDuration) {
        // The picture has not changed: the new segment starts with it, once, as its key frame.
        endCurrentSegment(time);
        startSegmentWithLastPicture(time);
    }
    evictOldSegments();
    checkFolder();
    publishClock();
}

void SegmentedRecorder::repeatLastPicture(const MediaTime& time, bool evenWithoutOverlay)
{
    advanceClockOnQueue(time);
    if (!lastFrame || !currentWriter || !time.isNumeric()) return;
    if (!evenWithoutOverlay) {
        // A screen that moves brings the overlay with its own frames: the repeats only fill in once
        // it has sent nothing for two ticks running. Its frames' own times can't tell: they reach
        // the ring some way behind the clock, and a repeat made meanwhile would come before them.
        if (++ticksWithoutScreenFrame < 2) return;
        // Never closer than about an interval to the last picture (a frame that came late, the
        // tick's own segment start); the ticker's interval is a whole number of milliseconds.
        if (currentLastVideoPTS.isNumeric() && (time - currentLastVideoPTS).seconds() < 0.95 / expectedFPS) return;
        if (!cameraProvider || !cameraProvider()) return;
    }
    deliverFrame(VideoFrame { lastFrame->image, time });
}

void SegmentedRecorder::moveClockTo(const MediaTime& time)
{
    if (!clockPTS.isNumeric() || time > clockPTS) clockPTS = time;
    // The sound up to now goes into the segment that is open now.
    mixer.advanceClock(clockPTS);
}

void SegmentedRecorder::deliverFrame(const VideoFrame& frame)
{
    VideoFrame taken = frame;
    if (currentSegmentStartPTS) {
        // A frame grabbed before a tick or a stop opened this segment, and still on its way then,
        // is newer than the picture the segment opened with: it comes right after it.
        const MediaTime floor = currentLastVideoPTS.isNumeric() ? currentLastVideoPTS : *currentSegmentStartPTS;
        if (currentLastVideoPTS.isNumeric() ? !(taken.pts > floor) : taken.pts < floor)
            taken.pts = floor + MediaTime(1, 1000);
    }
    if (!currentWriter || !currentWriter->hasVideoInput()) return countDrop(DropCounters::Cause::noSegment);
    if (currentWriter->isReadyForMoreMediaData()) {
        // The overlay is drawn afresh for every frame; a frame it can't be drawn on goes in as it came.
        if (cameraProvider) {
            if (const std::optional<CameraComposite> overlay = cameraProvider()) {
                if (auto drawn = CameraCompositor::composite(taken.image, *overlay, taken.pts)) {
                    taken.overlay = std::move(drawn->image);
                    taken.overlayAt = drawn->at;
                }
            }
        }
        if (currentWriter->append(taken)) {
            currentLastVideoPTS = taken.pts;
            return;
        }
    }
    // A writer that failed (its disk is full, say) takes nothing more until the segment ends, ready
    // or not: say so now, not at the end.
    const bool failed = currentWriter->status() == SegmentWriter::Status::failed;
    countDrop(failed ? DropCounters::Cause::noSegment : DropCounters::Cause::encoderBusy);
    if (failed) setProblem(causeOf(orQuestionMark(currentWriter->error())));
}

void SegmentedRecorder::countDrop(DropCounters::Cause cause)
{
    drops->add(cause);
}

void SegmentedRecorder::publishClock()
{
    MediaTime earliest = clockPTS;
    if (!completedSegments.empty())
        earliest = completedSegments.front().startPTS;
    else if (!closingSpans.empty())
        earliest = std::min_element(closingSpans.begin(), closingSpans.end())->first;
    else if (currentSegmentStartPTS)
        earliest = *currentSegmentStartPTS;
    // What a press now would get, and no more: only what follows the last stretch the ring lost,
    // and nothing while no segment can be written.
    for (const Loss& loss : losses)
        if (loss.to > earliest) earliest = loss.to;
    if (unwrittenSince || (currentWriter && currentWriter->status() == SegmentWriter::Status::failed))
        earliest = clockPTS;
    double seconds = (clockPTS - earliest).seconds();
    if (!(seconds > 0)) seconds = 0; // also NaN
    seconds = std::min(seconds, bufferSeconds);
    const int generation = ringGeneration;
    onMain(anchor, [seconds, generation](SegmentedRecorder& m) {
        if (m.mainGeneration == generation) m.setBufferedSeconds(seconds);
    });

    if (recordingStartPTS) {
        const double length = std::max(0.0, (clockPTS - *recordingStartPTS).seconds());
        const qint64 refused = drops->snapshot().since(dropsAtRecordingStart).total();
        onMain(anchor, [length, refused](SegmentedRecorder& m) {
            if (!m.recording) return; // stopped or thrown away since
            m.setCurrentDuration(length);
            m.setDroppedFrames(refused);
        });
    }
}

bool SegmentedRecorder::startNewSegment(const MediaTime& startingAt)
{
    makeRoomForSegment();
    // No folder at all: a name of its own would land in the root directory.
    const QString url = segmentFolder->path().isEmpty()
        ? QString()
        : segmentFolder->path() + QStringLiteral("/seg-") + shortUuid() + QStringLiteral(".mp4");
    // Until a writer opens, the clock runs on with no file under it. Tried again with every frame,
    // but logged once for as long as the reason stays the same.
    auto unwritten = [&](const char* what, const QString& error) {
        const QString text = orQuestionMark(error);
        if (!unwrittenSince || text != segmentProblem) logLine(QLatin1String(what) + text);
        segmentProblem = text;
        if (!unwrittenSince) unwrittenSince = Loss { startingAt, startingAt, causeOf(segmentProblem) };
        setProblem(unwrittenSince->cause);
    };
    if (url.isEmpty()) {
        unwritten("Segment writer init failed: ", QStringLiteral("no folder could be made for the segments"));
        return false;
    }
    std::shared_ptr<SegmentWriter> writer = writerFactory ? writerFactory(url, encoder) : nullptr;
    if (!writer || writer->status() == SegmentWriter::Status::failed) {
        unwritten("Segment writer init failed: ", writer ? writer->error() : QString());
        return false;
    }
    SegmentWriter::VideoSettings video;
    video.width = targetWidth;
    video.height = targetHeight;
    video.averageBitRate = bitrate;
    video.expectedFPS = expectedFPS;
    writer->addVideoInput(video);
    if (audioEnabled) writer->addAudioInput(); // refused: the segment goes on silent
    writer->setSoundGraceMilliseconds(awaitsSound ? soundGraceMilliseconds : 0);
    if (!writer->startWriting()) {
        unwritten("startWriting failed: ", writer->error());
        return false;
    }
    writer->startSession(startingAt);
    if (unwrittenSince) {
        unwrittenSince->to = startingAt;
        losses.push_back(*unwrittenSince);
        unwrittenSince.reset();
    }

    currentWriter = std::move(writer);
    currentSegmentURL = url;
    currentSegmentStartPTS = startingAt;
    currentLastVideoPTS = MediaTime::invalid();
    dropsAtSegmentStart = drops->snapshot();
    hasSessionStarted = true;
    return true;
}

void SegmentedRecorder::startSegmentWithLastPicture(const MediaTime& at)
{
    if (!lastFrame || !startNewSegment(at)) return;
    deliverFrame(VideoFrame { lastFrame->image, at, lastFrame->changes });
}

void SegmentedRecorder::rotateSegmentAsync(const MediaTime& startingAt)
{
    if (!currentWriter || !currentWriter->hasVideoInput() || !currentSegmentURL || !currentSegmentStartPTS) return;
    // The old segment ends where the new one begins: no overlap and no gap on the clock.
    endCurrentSegment(startingAt);
    // The new writer opens before the old one has finished closing, so no frame falls between them.
    startNewSegment(startingAt);
}

void SegmentedRecorder::endCurrentSegment(const MediaTime& end)
{
    if (!currentWriter || !currentSegmentURL || !currentSegmentStartPTS) return;
    currentWriter->endSession(end);
    currentWriter->markAsFinished();
    closeSegmentAsync(std::move(currentWriter), *currentSegmentURL, *currentSegmentStartPTS, end,
        drops->snapshot().since(dropsAtSegmentStart));
    currentWriter.reset();
    currentSegmentURL.reset();
    currentSegmentStartPTS.reset();
}

void SegmentedRecorder::closeSegmentAsync(std::shared_ptr<SegmentWriter> writer, const QString& url,
    const MediaTime& start, const MediaTime& end, const DropCounters::Snapshot& lost)
{
    // Closing waits for the encoder to drain: never on `queue`, whose frames must not stall.
    std::weak_ptr<Anchor> weak = anchor;
    const int generation = ringGeneration;
    ++closingsInFlight;
    closingSpans.emplace_back(start, end);
    utilityPool.start([weak, writer, url, start, end, lost, generation] {
        writer->markAsFinished();
        const SegmentWriter::Status status = writer->finishWriting();
        const QString error = writer->error();
        onQueue(weak, [=](SegmentedRecorder& r) {
            --r.closingsInFlight;
            if (const auto at = std::find(r.closingSpans.begin(), r.closingSpans.end(), std::pair(start, end));
                at != r.closingSpans.end())
                r.closingSpans.erase(at);
            if (!lost.isEmpty())
                logLine(QStringLiteral("Segment %1 lost %2").arg(QFileInfo(url).fileName(), lost.describe()));
            if (generation != r.ringGeneration) {
                QFile::remove(url); // the ring it belonged to was thrown away
            } else if (status == SegmentWriter::Status::completed && !QFileInfo::exists(url)) {
                // Written in full into a folder that was removed meanwhile: it is nowhere.
                r.losses.push_back(Loss { start, end, QLatin1String(folderRemovedCause) });
                r.publishClock();
            } else if (status == SegmentWriter::Status::completed) {
                r.segmentProblem.clear();
                if (!r.shortOfRoom && !r.unwrittenSince) r.setProblem({});
                // Closings may report back out of order: keep the ring in time order.
                const auto at = std::upper_bound(r.completedSegments.begin(), r.completedSegments.end(), start,
                    [](const MediaTime& t, const Segment& s) { return t < s.startPTS; });
                r.completedSegments.insert(at, Segment { url, start, end });
                r.evictOldSegments(); // it may have come back too old to keep
                r.publishClock();
            } else {
                r.segmentProblem = orQuestionMark(error);
                logLine(QStringLiteral("Segment failed: ") + r.segmentProblem);
                QFile::remove(url);
                r.losses.push_back(Loss { start, end, causeOf(r.segmentProblem) });
                r.setProblem(causeOf(r.segmentProblem));
                r.publishClock();
            }
            r.startPendingExportsIfReady();
        });
    });
}

void SegmentedRecorder::evictOldSegments()
{
    // While recording nothing goes, however long it runs. 6.0 matches the length of one segment:
    // the oldest kept segment then still reaches a full bufferSeconds back.
    const double limit = recordingStartPTS ? std::numeric_limits<double>::infinity() : bufferSeconds + 6.0;
    while (!completedSegments.empty()) {
        const Segment& oldest = completedSegments.front();
        const double age = (clockPTS - oldest.endPTS).seconds();
        if (!(limit < age)) break; // exactly at the limit, or not a number: it stays
        // A stop whose export has not begun yet still needs what lies in its span.
        const bool wanted = std::any_of(pendingExports.begin(), pendingExports.end(),
            [&](const PendingExport& job) { return oldest.endPTS > job.trimFromPTS; });
        if (wanted) break;
        discardSegmentFile(oldest.url);
        completedSegments.erase(completedSegments.begin());
    }
    // A loss older than anything a stop could still reach back to is no clip's concern.
    if (!recordingStartPTS && pendingExports.empty())
        std::erase_if(losses,
            [&](const Loss& loss) { return (clockPTS - loss.to).seconds() > bufferSeconds + 2 * segmentDuration; });
}

int64_t SegmentedRecorder::segmentBytes() const
{
    // The video's average rate, the sound's 128 kb/s, and half again for a busy picture, whose
    // rate control overshoots the average for seconds at a time.
    const double bytesPerSecond = (double(bitrate) + 128000.0) / 8.0;
    return int64_t(segmentDuration * bytesPerSecond * 1.5);
}

int64_t SegmentedRecorder::ringBytes() const
{
    // The kept segments reach bufferSeconds + one segment back, and the open one is on disk too.
    return int64_t((bufferSeconds + 2 * segmentDuration) / segmentDuration * double(segmentBytes()));
}

void SegmentedRecorder::makeRoomForSegment()
{
    const int64_t need = segmentBytes();
    int64_t room = SegmentFolder::freeBytesAt(segmentFolder->path());
    if (room < 0 || room >= need) {
        shortOfRoom = false;
        return;
    }
    bool evicted = false;
    while (room < need && !completedSegments.empty()) {
        const Segment oldest = completedSegments.front();
        // A stop whose export has not begun yet still needs what lies in its span.
        const bool wanted = std::any_of(pendingExports.begin(), pendingExports.end(),
            [&](const PendingExport& job) { return oldest.endPTS > job.trimFromPTS; });
        if (wanted) break;
        const qint64 bytes = QFileInfo(oldest.url).size();
        if (discardSegmentFile(oldest.url)) room += bytes;
        completedSegments.erase(completedSegments.begin());
        losses.push_back(Loss { oldest.startPTS, oldest.endPTS, QLatin1String(diskFullCause) });
        evicted = true;
    }
    if (evicted && !shortOfRoom)
        logLine(
            QStringLiteral("Segment folder %1: disk full, the oldest segments go early").arg(segmentFolder->path()));
    // Short of room for the buffer, whether or not the next segment fits now.
    shortOfRoom = true;
    setProblem(QLatin1String(diskFullCause));
}

void SegmentedRecorder::checkFolder()
{
    // One stat() a frame: nothing beside the encoding. A folder that could not be made, or made
    // again, is not looked for with every frame: the writers that cannot open there say so.
    if (!folderThere || segmentFolder->exists()) return;
    logLine(QStringLiteral("Segment folder removed under the ring: ") + segmentFolder->path());
    // The open segment is written into nothing: given up, and its stretch is lost.
    if (currentWriter && currentSegmentStartPTS) {
        losses.push_back(Loss { *currentSegmentStartPTS, clockPTS, QLatin1String(folderRemovedCause) });
        currentWriter.reset();
        currentSegmentURL.reset();
        currentSegmentStartPTS.reset();
    }
    for (const Segment& seg : completedSegments)
        losses.push_back(Loss { seg.startPTS, seg.endPTS, QLatin1String(folderRemovedCause) });
    completedSegments.clear();
    setProblem(QLatin1String(folderRemovedCause));
    if (!segmentFolder->recreate()) {
        // Its place will not have it back: a new folder, wherever one can be made.
        segmentFolder = std::make_unique<SegmentFolder>(ringBytes());
        *segmentsDir.lock() = segmentFolder->path();
    }
    folderThere = segmentFolder->exists();
    // The ring goes on at once with the picture on show; without one, the next frame opens it.
    if (clockPTS.isNumeric()) startSegmentWithLastPicture(clockPTS);
}

void SegmentedRecorder::relocateIfTooSmall()
{
    const bool unused = !currentWriter && completedSegments.empty() && closingsInFlight == 0 && pendingExports.empty()
        && exportsRunning == 0;
    if (!unused) return;
    const int64_t need = ringBytes();
    const int64_t room = SegmentFolder::freeBytesAt(segmentFolder->path());
    if (room < 0 || room >= need) return;
    const std::optional<QString> better = SegmentFolder::chooseParent(need);
    if (!better || SegmentFolder::freeBytesAt(*better) <= room) return;
    segmentFolder->remove();
    segmentFolder = std::make_unique<SegmentFolder>(*better);
    folderThere = segmentFolder->exists();
    logLine(QStringLiteral("Segment folder moved to %1: the buffer needs %2 MB")
                .arg(segmentFolder->path())
                .arg(double(need) / 1e6, 0, 'f', 0));
    *segmentsDir.lock() = segmentFolder->path();
}

QString SegmentedRecorder::causeOf(const QString& error)
{
    for (int code : { ENOSPC, EDQUOT })
        if (error.contains(QString::fromLocal8Bit(std::strerror(code)))) return QLatin1String(diskFullCause);
    return QStringLiteral("the buffer could not be written (%1)").arg(error);
}

void SegmentedRecorder::setProblem(const QString& text)
{
    if (text == segmentProblemShown) return;
    segmentProblemShown = text;
    const int generation = ringGeneration;
    onMain(anchor, [text, generation](SegmentedRecorder& m) {
        if (m.mainGeneration == generation) m.setBufferProblem(text);
    });
}

void SegmentedRecorder::appendAudio(const AudioBuffer& buffer)
{
    const MediaTime pts = buffer.pts;
    if (!pts.isValid() || !pts.isNumeric() || buffer.frameCount() == 0) return;
    // Two sources share one track: the one that lags behind loses its buffer, nothing is reordered.
    if (lastAudioPTS.isValid() && !(pts > lastAudioPTS)) return countDrop(DropCounters::Cause::audioLate);
    // Audio before the first picture, and while no segment is open, is gone. The encoder puts the
    // rest into the segment whose span it falls in, also one that has just ended.
    if (!currentWriter || !currentWriter->hasAudioInput()) return;
    if (!currentWriter->isReadyForMoreAudioData() || !currentWriter->appendAudio(buffer))
        return countDrop(DropCounters::Cause::audioEncoderBusy);
    lastAudioPTS = pts;
}

// ---- recording and export ----

void SegmentedRecorder::stopRecordingOnQueue(const MediaTime& pressedAt, bool counted)
{
    // No recording: no clip, no error.
    if (!recordingStartPTS || !destinationURL) {
        if (counted) onMain(anchor, [](SegmentedRecorder& m) { m.endExport(); });
        return;
    }
    // The clip ends at the press, and its last picture lasts until then.
    if (pressedAt.isNumeric()) moveClockTo(pressedAt);
    const MediaTime end = clockPTS.isNumeric() ? clockPTS : latestPTS;
    const MediaTime lastStart = currentSegmentStartPTS.value_or(end);
    endCurrentSegment(end);
    pendingExports.push_back(PendingExport {
        *recordingStartPTS - MediaTime::fromSeconds(bufferSeconds, 600), end, lastStart, *destinationURL });
    const double length = std::max(0.0, (end - *recordingStartPTS).seconds());
    recordingStartPTS.reset();
    destinationURL.reset();
    // The length stays on show after the stop, unless a new recording has begun meanwhile.
    onMain(anchor, [length](SegmentedRecorder& m) {
        if (!m.recording) m.setCurrentDuration(length);
    });
    // With a clock the ring goes on at once, with the picture on screen now; without one the next
    // frame opens the next segment.
    if (pressedAt.isNumeric()) startSegmentWithLastPicture(end);
    // Segments that ended just before the stop may still be closing; the export waits for them
    // rather than leave a hole in the clip. Closings take a fraction of a second.
    startPendingExportsIfReady();
}

void SegmentedRecorder::startPendingExportsIfReady()
{
    if (closingsInFlight > 0) return;
    const QString problem = segmentProblem;
    for (const PendingExport& job : std::exchange(pendingExports, {})) {
        // A stretch the ring lost inside the span would be a silent jump in the clip: the clip
        // starts after the last one instead, and says what it holds.
        MediaTime trim = job.trimFromPTS;
        QString cause;
        std::vector<Loss> lost = losses;
        if (unwrittenSince) lost.push_back(Loss { unwrittenSince->from, job.end, unwrittenSince->cause });
        for (const Loss& loss : lost)
            if (loss.to > trim && loss.from < job.end) {
                trim = loss.to;
                cause = loss.cause;
            }
        std::vector<Segment> chosen;
        for (const Segment& s : completedSegments)
            if (s.endPTS > trim && !(s.startPTS > job.lastStart)) chosen.push_back(s);
        QString shortfall;
        if (!cause.isEmpty() && !chosen.empty()) {
            const MediaTime from = std::max(trim, chosen.front().startPTS);
            const double held = std::max(0.0, (job.end - from).seconds());
            const double asked = (job.end - job.trimFromPTS).seconds();
            if (held + 0.5 < asked)
                shortfall = QStringLiteral("Saved %1 s of the %2 s asked: %3.")
                                .arg(std::llround(held))
                                .arg(std::llround(asked))
                                .arg(cause);
        }
        const QString nothing = !problem.isEmpty() ? problem : cause;
        ++exportsRunning;
        for (const Segment& s : chosen)
            ++segmentReaders[s.url];
        std::weak_ptr<Anchor> weak = anchor;
        const QString folder = segmentFolder->path();
        QThreadPool::globalInstance()->start([weak, chosen, trim, job, nothing, shortfall, folder] {
            if (weak.expired()) return;
            exportConcatenated(weak, chosen, trim, job.destination,
                nothing.isEmpty() ? QString() : QStringLiteral("%1 (in %2)").arg(nothing, folder), shortfall);
            onQueue(weak, [chosen](SegmentedRecorder& r) {
                --r.exportsRunning;
                r.endReading(chosen);
            });
        });
    }
}

void SegmentedRecorder::exportConcatenated(const std::weak_ptr<Anchor>& weak, const std::vector<Segment>& segments,
    const MediaTime& trimFromPTS, const QString& destination, const QString& bufferProblem, const QString& shortfall)
{
    if (segments.empty() && !bufferProblem.isEmpty()) {
        // Nothing buffered because nothing could be written: say why, not "wait a second".
        reportError(weak, QStringLiteral("Nothing could be buffered: %1.").arg(bufferProblem));
        onMain(weak, [](SegmentedRecorder& m) { m.endExport(); });
        return;
    }
    const ClipExporter::Result result = ClipExporter::exportConcatenated(segments, trimFromPTS, destination);
    if (result.completed) {
        // The clip is in place: the main thread hears it at once, not behind the pictures queued
        // for the ring meanwhile. The ring drops the exported segments on its queue, before any
        // work that the news can start there (a new stop) reaches it.
        onQueue(weak, [segments](SegmentedRecorder& r) { r.removeExportedSegments(segments); });
        onMain(weak, [path = result.path, shortfall](SegmentedRecorder& m) {
            if (!shortfall.isEmpty() && m.onClipShort) m.onClipShort(path, shortfall);
            if (m.onFinished) m.onFinished(path);
            m.endExport();
        });
        return;
    }
    reportError(weak, result.errorText);
    onMain(weak, [](SegmentedRecorder& m) { m.endExport(); });
}

bool SegmentedRecorder::discardSegmentFile(const QString& url)
{
    if (segmentReaders.contains(url)) {
        releasedWhileRead.insert(url);
        return false;
    }
    QFile::remove(url);
    return true;
}

void SegmentedRecorder::endReading(const std::vector<Segment>& read)
{
    for (const Segment& s : read) {
        const auto at = segmentReaders.find(s.url);
        if (at == segmentReaders.end() || --at->second > 0) continue;
        segmentReaders.erase(at);
        if (releasedWhileRead.erase(s.url)) QFile::remove(s.url);
    }
}

void SegmentedRecorder::removeExportedSegments(const std::vector<Segment>& exported)
{
    for (const Segment& s : exported)
        discardSegmentFile(s.url);
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

void SegmentedRecorder::beginExport()
{
    if (exportsUnderway++ == 0) emit isExportingChanged(true);
}

void SegmentedRecorder::endExport()
{
    if (exportsUnderway > 0 && --exportsUnderway == 0) emit isExportingChanged(false);
}

void SegmentedRecorder::setBufferProblem(const QString& value)
{
    if (problem == value) return;
    problem = value;
    emit bufferProblemChanged(value);
}

void SegmentedRecorder::setDroppedFrames(qint64 value)
{
    if (dropped == value) return;
    dropped = value;
    emit droppedFramesChanged(value);
}

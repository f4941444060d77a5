#pragma once

// moc reads this header with C++17 predefines and cannot parse the C++20 library headers these
// pull in; it needs none of them to generate the meta-object code.
#ifndef Q_MOC_RUN
#include "core/MediaTime.h"
#include "core/SerialQueue.h"
#include "media/MediaSample.h"
#include "recorder/Segment.h"
#include "recorder/SegmentFolder.h"
#endif

#include <QObject>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class SegmentWriter;
struct CameraComposite; // the camera overlay of one frame, drawn by the compositing pass

// The rolling buffer: every video frame that arrives goes into a chain of short segment files on
// disk, and the oldest are thrown away, so that a recording can begin before the press that asked
// for it. A recording only marks a point on this chain; stopping it joins the segments of the
// span into one MP4 by copying packets (ClipExporter).
//
// Threads: the observable properties, onFinished and onError live on the thread that owns the
// object (the main thread) and are written there only. Every writer field lives on `queue`
// ("vt2.recorder.segments"); the public operations below may be called from any thread and only
// place work there. Closing a rotated segment runs on `utilityPool`; an export on the global pool.
class SegmentedRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isBuffering READ isBuffering NOTIFY isBufferingChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(double currentDuration READ currentDuration NOTIFY currentDurationChanged)
    Q_PROPERTY(double bufferedSeconds READ bufferedSeconds NOTIFY bufferedSecondsChanged)
    Q_PROPERTY(bool isExporting READ isExporting NOTIFY isExportingChanged)

public:
    // Makes the writer of one segment file at `path`. The recorder uses a real SegmentWriter;
    // tests put their own factory here to make an open fail on demand. A null result or a writer
    // whose status is already failed counts as "could not be made".
    using SegmentWriterFactory = std::function<std::unique_ptr<SegmentWriter>(const QString& path)>;
    using CameraProvider = std::function<std::optional<CameraComposite>()>;

    static constexpr double segmentDuration = 6.0;

    explicit SegmentedRecorder(QObject* parent = nullptr);
    // Abandons the open segment and removes the whole segment folder. Main thread.
    ~SegmentedRecorder() override;

    // Main thread.
    bool isBuffering() const { return buffering; }
    bool isRecording() const { return recording; }
    double currentDuration() const { return duration; }
    double bufferedSeconds() const { return buffered; }
    bool isExporting() const { return exporting; }
    // The folder of this run's segment files.
    QString segmentsDirectory() const { return segmentsDir; }

    // Any thread. Stored on `queue`: size, bit rate and rate apply from the next segment,
    // bufferSeconds from the next frame.
    void configure(int width, int height, double bitrateMbps, double bufferSeconds, int fps);
    // Any thread: only shows that the ring is wanted; the ring runs whenever frames come.
    void armBuffering();
    // Any thread: closes the open segment, throws the ring and any running recording away.
    void disarmBuffering();
    // Any thread: hands the sample to appendFrame / appendAudio on `queue`.
    void ingest(const VideoFrame& frame);
    void ingestAudio(const AudioBuffer& buffer);
    // Any thread: whether segments opened from now on get an audio track.
    void setAudioEnabled(bool enabled);
    // Any thread: marks the newest frame as the start of a recording that goes to `destination`.
    void startRecording(const QString& destination);
    // Any thread: closes the open segment and joins the span into the destination clip.
    void stopRecording();
    // Any thread: replaces how segment writers are made (see SegmentWriterFactory).
    void setWriterFactory(SegmentWriterFactory factory);

    // Set on the main thread by the owner; called on the main thread.
    std::function<void(const QString& url)> onFinished;
    std::function<void(const QString& text)> onError;
    // Set by the owner before frames flow; called on `queue` (the compositing pass).
    CameraProvider cameraProvider;

    // Blocks until `queue` has run everything placed on it so far and every closing of a rotated
    // segment has reported back. Any thread but `queue`'s own; for tests and tools, since the
    // program itself never waits for the ring.
    void waitUntilIdle();
    // The finished segments as the ring holds them now, in list order. Blocks on `queue`.
    std::vector<Segment> segmentsSnapshot();

signals:
    void isBufferingChanged(bool value);
    void isRecordingChanged(bool value);
    void currentDurationChanged(double value);
    void bufferedSecondsChanged(double value);
    void isExportingChanged(bool value);

private:
    // Lets work that outlives a call (closings, exports) find out whether the recorder still
    // exists, and reach it only while it does.
    struct Anchor {
        std::mutex mutex;
        SegmentedRecorder* recorder = nullptr; // guarded by mutex
    };

    // Runs on `queue` with the recorder, or not at all once the recorder is gone.
    static void onQueue(const std::weak_ptr<Anchor>& anchor, std::function<void(SegmentedRecorder&)> task);
    // Places `task` on the main thread with the recorder, if it still exists.
    static void onMain(const std::weak_ptr<Anchor>& anchor, std::function<void(SegmentedRecorder&)> task);

    // All on `queue`.
    void appendFrame(const VideoFrame& frame);
    void appendAudio(const AudioBuffer& buffer);
    void startNewSegment(const MediaTime& startingAt);
    void rotateSegmentAsync(const MediaTime& startingAt);
    void finalizeCurrentSegmentSync();
    void evictOldSegments();
    void stopRecordingOnQueue();
    // Starts the exports of stops once no rotated segment is still closing.
    void startPendingExportsIfReady();
    void removeExportedSegments(const std::vector<Segment>& exported);

    // Any thread: places the call of onError on the main thread.
    static void reportError(const std::weak_ptr<Anchor>& anchor, const QString& text);
    // The global pool: joins `segments` into `destination`, then reports.
    static void exportConcatenated(const std::weak_ptr<Anchor>& anchor, const std::vector<Segment>& segments,
        const MediaTime& trimFromPTS, const QString& destination);

    // Main thread.
    void setBuffering(bool value);
    void setRecording(bool value);
    void setCurrentDuration(double value);
    void setBufferedSeconds(double value);
    void setExporting(bool value);

    // Main thread only.
    bool buffering = false;
    bool recording = false;
    double duration = 0;
    double buffered = 0;
    bool exporting = false;

    // `queue` only.
    int targetWidth = 1920;
    int targetHeight = 1080;
    int64_t bitrate = 20000000;
    int expectedFPS = 60;
    double bufferSeconds = 10.0;
    std::shared_ptr<SegmentWriter> currentWriter;
    std::optional<QString> currentSegmentURL;
    std::optional<MediaTime> currentSegmentStartPTS;
    bool hasSessionStarted = false;
    bool audioEnabled = false;
    MediaTime lastAudioPTS;
    std::vector<Segment> completedSegments;
    MediaTime latestPTS = MediaTime::zero();
    std::optional<MediaTime> recordingStartPTS;
    std::optional<QString> destinationURL;
    // Rotated segments whose closing has not reported back yet.
    int closingsInFlight = 0;
    // Stops whose exports wait for those closings, so that no segment is missing from a clip.
    struct PendingExport {
        MediaTime trimFromPTS;
        MediaTime lastPTS; // the last frame before the stop: later segments are not the clip's
        QString destination;
    };
    std::vector<PendingExport> pendingExports;
    SegmentWriterFactory writerFactory;

    SegmentFolder segmentFolder;
    const QString segmentsDir;
    std::shared_ptr<Anchor> anchor;
    // Closings of rotated segments, so that they never wait behind anything else.
    QThreadPool utilityPool;
    // Last member: destroyed first, after the destructor has stopped its work.
    SerialQueue queue { QStringLiteral("vt2.recorder.segments") };
};

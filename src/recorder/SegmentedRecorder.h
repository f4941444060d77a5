#pragma once

// moc reads this header with C++17 predefines and cannot parse the C++20 library headers these
// pull in; it needs none of them to generate the meta-object code.
#ifndef Q_MOC_RUN
#include "core/Backlog.h"
#include "core/DropCounters.h"
#include "core/Guarded.h"
#include "core/MediaTime.h"
#include "core/PeriodicTicker.h"
#include "core/SerialQueue.h"
#include "media/MediaSample.h"
#include "recorder/AudioMixer.h"
#include "recorder/Segment.h"
#include "recorder/SegmentFolder.h"
#endif

#include <QObject>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

class SegmentEncoder;
class SegmentWriter;
struct CameraComposite; // the camera overlay of one frame, drawn by the compositing pass

// The rolling buffer: every video frame that arrives goes into a chain of short segment files on
// disk, and the oldest are thrown away, so that a recording can begin before the press that asked
// for it. A recording only marks a point on this chain; stopping it joins the segments of the
// span into one MP4 by copying packets (ClipExporter).
//
// Time is the capture clock's, not the frames'. A still screen sends no frames, yet the ring's
// clock keeps running: while buffering, a tick on a thread of its own tells the ring what time it is,
// so segments still close every segmentDuration, old ones still go, the counters count real
// seconds, and a segment's last picture lasts until the segment closed. A segment that opens with
// no new frame starts with the last picture again (one frame, not one per frame interval). A clip
// therefore covers the clock from bufferSeconds before the first press to the second press.
//
// Threads: the observable properties, onFinished and onError live on the thread that owns the
// object (the main thread) and are written there only. Every writer field lives on `queue`
// ("vt2.recorder.segments"); the public operations below may be called from any thread and only
// place work there. Frames come straight from the capture thread and sound from the audio
// threads: neither waits for the main thread, so a busy window never leaves a hole in the ring.
// What waits on `queue` is bounded twice (frames, sound buffers); what does not fit is dropped and
// counted in dropCounters(). Closing a segment runs on `utilityPool`; an export on the global pool.
class SegmentedRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isBuffering READ isBuffering NOTIFY isBufferingChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(double currentDuration READ currentDuration NOTIFY currentDurationChanged)
    Q_PROPERTY(double bufferedSeconds READ bufferedSeconds NOTIFY bufferedSecondsChanged)
    Q_PROPERTY(bool isExporting READ isExporting NOTIFY isExportingChanged)
    Q_PROPERTY(qint64 droppedFrames READ droppedFrames NOTIFY droppedFramesChanged)
    Q_PROPERTY(QString bufferProblem READ bufferProblem NOTIFY bufferProblemChanged)

public:
    // Makes the writer of one segment file at `path` on the ring's encoder. The recorder uses a
    // real SegmentWriter; tests put their own factory here to make an open fail on demand. A null
    // result or a writer whose status is already failed counts as "could not be made".
    using SegmentWriterFactory
        = std::function<std::unique_ptr<SegmentWriter>(const QString& path, std::shared_ptr<SegmentEncoder> encoder)>;
    using CameraProvider = std::function<std::optional<CameraComposite>()>;
    // The capture clock's present time. An invalid answer means "no clock": then the ring's time is
    // that of the newest frame, and nothing moves between frames.
    using Clock = std::function<MediaTime()>;

    // The longest a segment runs; one ends up to a second sooner on a key frame (appendFrame).
    static constexpr double segmentDuration = 6.0;
    // How often the clock ticks while buffering (on the ticker's thread, never the main thread's
    // timers: a busy window must not hold the ring's time, and with it the sound, back).
    static constexpr int clockTickMilliseconds = 250;
    // The sound of a segment's last moments is awaited this long before the file closes without
    // it (a stalled or silent source).
    static constexpr int soundGraceMilliseconds = 500;
    // Frames handed to the ring and not yet taken; more are dropped and counted. The ring's queue
    // only opens files between frames: a few frames of slack are plenty, and each one waiting
    // holds a whole picture.
    static constexpr int defaultFramesWaitingLimit = 4;
    // Why a clip holds less than was asked, or the ring less than it should.
    static constexpr const char* diskFullCause = "the buffer's disk is full";
    static constexpr const char* folderRemovedCause = "the buffer's folder was removed";
    // Sound buffers handed to the ring and not yet taken. PulseAudio delivers a few milliseconds a
    // buffer, so this is seconds of sound, in a few megabytes: enough for any hiccup of the queue,
    // and a bound on what a flood of sound can hold.
    static constexpr int audioBuffersWaitingLimit = 512;

    explicit SegmentedRecorder(QObject* parent = nullptr);
    // Abandons the open segment and removes the whole segment folder. Main thread.
    ~SegmentedRecorder() override;

    // Main thread.
    bool isBuffering() const { return buffering; }
    bool isRecording() const { return recording; }
    double currentDuration() const { return duration; }
    double bufferedSeconds() const { return buffered; }
    // From the stop of a recording until its clip is written or has failed, however many stops
    // overlap.
    bool isExporting() const { return exportsUnderway > 0; }
    // Frames and audio buffers lost since the running (or last) recording started, whatever the
    // cause (see dropCounters).
    qint64 droppedFrames() const { return dropped; }
    // Why the ring cannot keep what it should (it cannot write, or its disk holds less than the
    // buffer), for the user; empty while it can. Set as soon as it is seen, cleared once a segment
    // is written in full again.
    QString bufferProblem() const { return problem; }
    // The folder of this run's segment files. Any thread.
    QString segmentsDirectory() const;
    // Any thread. Every frame and sound buffer lost on the way into the ring, by cause, since the
    // recorder was made. The capture engine reports its own losses here too.
    const std::shared_ptr<DropCounters>& dropCounters() const { return drops; }
    // Any thread. The hand-overs into `queue`, for tests and tools that watch their bounds.
    const Backlog& framesWaiting() const { return frameBacklog; }
    const Backlog& audioBuffersWaiting() const { return audioBacklog; }

    // Main thread, before anything else: where the ring's time comes from. The default reads the
    // monotonic capture clock. Without a clock a segment's sound is not awaited after it ends.
    // The clock is also read on the ticker's thread, so it must be safe to call from any thread.
    void setClock(Clock clock);

    // Any thread. Stored on `queue`: size, bit rate and rate apply from the next segment,
    // bufferSeconds from the next frame.
    void configure(int width, int height, double bitrateMbps, double bufferSeconds, int fps);
    // Main thread: the ring is wanted; its clock ticks from now on.
    void armBuffering();
    // Main thread: closes the open segment, throws the ring and any running recording away, and
    // stops the clock's ticks.
    void disarmBuffering();
    // Any thread (the capture thread): hands the sample to appendFrame on `queue`, or drops it when
    // as many frames as allowed are already waiting there.
    void ingest(const VideoFrame& frame);
    // Any thread (the audio threads): a buffer of system audio or of the microphone. The two are
    // mixed into the one sound of the segments (AudioMixer), each at its own capture time. Dropped
    // when audioBuffersWaitingLimit buffers already wait.
    void ingestAudio(const AudioBuffer& buffer, AudioMixer::Input input = AudioMixer::Input::system);
    // Any thread: the input has stopped (a microphone switched off or gone); the mix no longer
    // waits for it.
    void endAudioInput(AudioMixer::Input input);
    // Any thread: the capture clock has reached `now`. The tick does this while buffering.
    void advanceClock(const MediaTime& now);
    // Any thread: whether segments opened from now on get an audio track.
    void setAudioEnabled(bool enabled);
    // Main thread: marks the present moment of the clock, or the one `earlier` than that (when a
    // change was seen that the window could only answer later), as the start of a recording that
    // goes to `destination`. isRecording changes at once.
    void startRecording(const QString& destination, std::chrono::nanoseconds earlier = {});
    // Main thread: closes the open segment at the present moment and joins the span into the
    // destination clip. isRecording changes at once.
    void stopRecording();
    // Any thread: replaces how segment writers are made (see SegmentWriterFactory).
    void setWriterFactory(SegmentWriterFactory factory);
    // How many frames may wait for the ring before new ones are dropped. A source faster than
    // real time (a test, a benchmark) that wants every frame lifts it.
    void setFramesWaitingLimit(int limit) { frameBacklog.setLimit(limit); }
    // The same for sound buffers (audioBuffersWaitingLimit by default).
    void setAudioBuffersWaitingLimit(int limit) { audioBacklog.setLimit(limit); }

    // Set on the main thread by the owner; called on the main thread. onFinished receives the
    // path the clip was written to: the destination, or a free name beside it if that was taken.
    std::function<void(const QString& url)> onFinished;
    std::function<void(const QString& text)> onError;
    // Called on the main thread just before onFinished, for a clip that holds less than was asked
    // because the ring lost some of it (a full disk, a segment that failed, its folder removed):
    // the text for the user says how much and why.
    std::function<void(const QString& url, const QString& text)> onClipShort;
    // Set by the owner before frames flow; called on `queue` for every frame (the compositing
    // pass, CameraCompositor). What it gives is burnt into the frame; none: the frame goes in as it
    // came.
    CameraProvider cameraProvider;
    // Main thread: while on and buffering, the ring does not wait for the screen to change. A still
    // screen sends no frames, but an overlay that moves by itself (the camera) must still be seen:
    // when no frame came for a frame interval, the last picture goes in again with the overlay of
    // that moment, at the configured rate. Only while cameraProvider gives an overlay.
    void setKeepsFrameRate(bool on);

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
    void droppedFramesChanged(qint64 value);
    void bufferProblemChanged(const QString& value);

private:
    // Lets work that outlives a call (closings, exports) find out whether the recorder still
    // exists, and reach it only while it does.
    using Anchor = Guarded<SegmentedRecorder*>;

    // Runs on `queue` with the recorder, or not at all once the recorder is gone.
    static void onQueue(const std::weak_ptr<Anchor>& anchor, std::function<void(SegmentedRecorder&)> task);
    // Places `task` on the main thread with the recorder, if it still exists.
    static void onMain(const std::weak_ptr<Anchor>& anchor, std::function<void(SegmentedRecorder&)> task);

    // All on `queue`.
    void appendFrame(const VideoFrame& frame);
    void appendAudio(const AudioBuffer& buffer);
    void advanceClockOnQueue(const MediaTime& now);
    // The last picture again at `now`, with the overlay of this moment, unless a frame just came or
    // there is no overlay; `evenWithoutOverlay`: in any case.
    void repeatLastPicture(const MediaTime& now, bool evenWithoutOverlay);
    // Starts or stops the ticks of setKeepsFrameRate for the present state. Main thread.
    void updatePictureTicker();
    // The ring's present time: the newest of the clock's ticks and the frames.
    void moveClockTo(const MediaTime& time);
    bool startNewSegment(const MediaTime& startingAt);
    // Opens a segment at `at` whose first picture is the last one seen, if there is one.
    void startSegmentWithLastPicture(const MediaTime& at);
    void deliverFrame(const VideoFrame& frame);
    // Ends the open segment at `end` and closes it: its sound may still come for a moment.
    void endCurrentSegment(const MediaTime& end);
    void rotateSegmentAsync(const MediaTime& startingAt);
    void closeSegmentAsync(std::shared_ptr<SegmentWriter> writer, const QString& url, const MediaTime& start,
        const MediaTime& end, const DropCounters::Snapshot& lost);
    void evictOldSegments();
    // What one segment and the whole ring take on disk at the configured rates, with a margin.
    int64_t segmentBytes() const;
    int64_t ringBytes() const;
    // Throws the oldest finished segments away, however young, until the disk has room for the
    // next segment: the newest seconds matter more than the oldest.
    void makeRoomForSegment();
    // The folder was removed under the ring: what went with it is forgotten, and it is made again.
    void checkFolder();
    // A ring that is not in use yet moves to a folder that can hold it at the configured rates.
    void relocateIfTooSmall();
    void setProblem(const QString& text);
    // The phrase for the user for a writer's error text.
    static QString causeOf(const QString& error);
    void publishClock();
    void countDrop(DropCounters::Cause cause);
    void stopRecordingOnQueue(const MediaTime& pressedAt, bool counted);
    // Starts the exports of stops once no ended segment is still closing.
    void startPendingExportsIfReady();
    void removeExportedSegments(const std::vector<Segment>& exported);
    // Removes a segment's file the ring no longer holds, or, while an export still reads it, once
    // the last one has finished. True when it went at once.
    bool discardSegmentFile(const QString& url);
    // An export has finished reading `read`: files let go of meanwhile go now.
    void endReading(const std::vector<Segment>& read);

    // Any thread: places the call of onError on the main thread.
    static void reportError(const std::weak_ptr<Anchor>& anchor, const QString& text);
    // The global pool: joins `segments` into `destination`, then reports.
    static void exportConcatenated(const std::weak_ptr<Anchor>& anchor, const std::vector<Segment>& segments,
        const MediaTime& trimFromPTS, const QString& destination, const QString& bufferProblem,
        const QString& shortfall);
    // The present time on the capture clock, or invalid without one. Main thread.
    MediaTime now() const;

    // Main thread.
    void setBuffering(bool value);
    void setRecording(bool value);
    void setCurrentDuration(double value);
    void setBufferedSeconds(double value);
    // A stop's clip is under way, or has landed or failed.
    void beginExport();
    void endExport();
    void setDroppedFrames(qint64 value);
    void setBufferProblem(const QString& value);

    // Main thread only.
    bool buffering = false;
    bool recording = false;
    double duration = 0;
    double buffered = 0;
    int exportsUnderway = 0;
    qint64 dropped = 0;
    QString problem;
    Clock clock;
    PeriodicTicker clockTicker { QStringLiteral("vt2.recorder.clock") };
    bool keepsFrameRate = false;
    PeriodicTicker pictureTicker { QStringLiteral("vt2.recorder.pictures") };
    // The configured rate, for the picture ticker; written on `queue`, read on the main thread.
    std::atomic<int> pictureRate { 60 };
    // A repeat is on its way to `queue`: ticks do not pile up behind a busy queue.
    std::atomic<bool> repeatWaiting { false };
    // Counts disarms, like ringGeneration on `queue`: values published by an older ring are dropped.
    int mainGeneration = 0;

    // `queue` only.
    int targetWidth = 1920;
    int targetHeight = 1080;
    int64_t bitrate = 20000000;
    int expectedFPS = 60;
    double bufferSeconds = 10.0;
    std::shared_ptr<SegmentWriter> currentWriter;
    std::optional<QString> currentSegmentURL;
    std::optional<MediaTime> currentSegmentStartPTS;
    // The time of the last picture handed to the open segment.
    MediaTime currentLastVideoPTS;
    // The counts when the open segment opened: what is lost while it is open is logged when it
    // closes, once a segment however many it is.
    DropCounters::Snapshot dropsAtSegmentStart;
    // The encoders, alive across segments; a new one with every new ring.
    std::shared_ptr<SegmentEncoder> encoder;
    // Whether the sound of a segment's last moments is awaited (there is a clock it keeps to).
    bool awaitsSound = true;
    // The spans of the segments that are closing, for the buffered length.
    std::vector<std::pair<MediaTime, MediaTime>> closingSpans;
    bool hasSessionStarted = false;
    bool audioEnabled = false;
    MediaTime lastAudioPTS;
    // Between the audio inputs and appendAudio.
    AudioMixer mixer { [this](const AudioBuffer& mixed) { appendAudio(mixed); } };
    std::vector<Segment> completedSegments;
    MediaTime latestPTS = MediaTime::zero();
    // The ring's present time; invalid until the first frame.
    MediaTime clockPTS;
    // The last picture, which lasts until something changes.
    std::optional<VideoFrame> lastFrame;
    // Picture ticks since the screen last sent a frame (setKeepsFrameRate).
    int ticksWithoutScreenFrame = 0;
    std::optional<MediaTime> recordingStartPTS;
    std::optional<QString> destinationURL;
    // The counts when the running recording started.
    DropCounters::Snapshot dropsAtRecordingStart;
    // Why the last segment could not be written, until one is written again.
    QString segmentProblem;
    // Stretches of the clock that are in no file because the ring lost them, with the reason, so
    // that a clip across one is cut after it and says so rather than jump over it.
    struct Loss {
        MediaTime from;
        MediaTime to;
        QString cause;
    };
    std::vector<Loss> losses;
    // Since when no writer could be opened, and why: a loss still running.
    std::optional<Loss> unwrittenSince;
    // What bufferProblem was last set to from here.
    QString segmentProblemShown;
    // Whether the last segment needed older ones thrown away to find room.
    bool shortOfRoom = false;
    // Exports started and not yet reported back: their files must stay where they are.
    int exportsRunning = 0;
    // How many running exports read each segment file (two overlapping saves share the seconds
    // before them), and those of them the ring has let go of meanwhile.
    std::map<QString, int> segmentReaders;
    std::set<QString> releasedWhileRead;
    // Raised by disarmBuffering: closings of an older ring remove their file instead of joining.
    int ringGeneration = 0;
    // Ended segments whose closing has not reported back yet.
    int closingsInFlight = 0;
    // Stops whose exports wait for those closings, so that no segment is missing from a clip.
    struct PendingExport {
        MediaTime trimFromPTS;
        MediaTime end; // the stop
        MediaTime lastStart; // the start of the segment the stop ended: later ones are not the clip's
        QString destination;
    };
    std::vector<PendingExport> pendingExports;
    SegmentWriterFactory writerFactory;

    // Any thread.
    const std::shared_ptr<DropCounters> drops = std::make_shared<DropCounters>();
    Backlog frameBacklog { defaultFramesWaitingLimit };
    Backlog audioBacklog { audioBuffersWaitingLimit };

    // `queue` only, but for its making and removal.
    std::unique_ptr<SegmentFolder> segmentFolder;
    // Whether it was there at the last look, so that its disappearance is noticed once.
    bool folderThere = false;
    // Its path, for any thread.
    mutable Guarded<QString> segmentsDir;
    std::shared_ptr<Anchor> anchor;
    // Closings of segments, so that they never wait behind anything else.
    QThreadPool utilityPool;
    // Last member: destroyed first, after the destructor has stopped its work.
    SerialQueue queue { QStringLiteral("vt2.recorder.segments") };
};

#pragma once

#include "capture/CaptureSource.h"
#include "capture/OwnWindows.h"
#include "capture/PreviewMaker.h"
#include "core/Guarded.h"
#include "platform/CaptureBackend.h"
#include "platform/SystemAudioBackend.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class SegmentedRecorder;

// What can be captured, and the one running capture stream that feeds the recorder and a small
// preview. The platform lies behind CaptureBackend (the screen) and SystemAudioBackend (the
// system's sound); this class holds the rules.
//
// Threads: all state lives on the main thread and every method is called there, except where a
// comment says otherwise. Frames arrive on the backend's capture thread and go from there straight
// to the recorder, never through the main thread: a busy window cannot hold up the recording. Only
// the preview (and the frameSink observer) hops to the main thread, a bounded number at a time, and
// a hop that finds no room is simply skipped: the window may miss previews, the ring misses
// nothing. System audio goes from the audio thread straight to the recorder as well.
//
// The link to the recorder is weak: a recorder that is gone simply receives nothing. The capture
// and audio threads read the link under its lock, so whoever destroys the recorder stops the
// stream first (the session controller keeps both for the life of the process).
class CaptureEngine : public QObject {
    Q_OBJECT
    Q_PROPERTY(std::vector<CaptureDisplay> availableDisplays READ availableDisplays NOTIFY availableDisplaysChanged)
    Q_PROPERTY(std::vector<CaptureWindow> availableWindows READ availableWindows NOTIFY availableWindowsChanged)
    Q_PROPERTY(std::optional<CaptureSource> selectedSource READ selectedSource WRITE setSelectedSource NOTIFY
            selectedSourceChanged)
    Q_PROPERTY(std::optional<QString> errorMessage READ errorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(QImage latestPreview READ latestPreview NOTIFY latestPreviewChanged)
    Q_PROPERTY(bool isStreaming READ isStreaming NOTIFY isStreamingChanged)
    Q_PROPERTY(int outputWidth READ outputWidth NOTIFY outputWidthChanged)
    Q_PROPERTY(int outputHeight READ outputHeight NOTIFY outputHeightChanged)

public:
    struct WindowScope {
        uint32_t windowID = 0;
        QRectF frame; // global display space
    };

    // Frames on their way to the main thread (for the preview and frameSink) at most. Each holds one
    // of the capture's few picture buffers until the main thread has handled it: a stalled window
    // may hold this many, and the rest stay free for the recording.
    static constexpr int framesToWindowLimit = 2;

    // The advice that follows the reason of a failed start.
    static const QString captureFailedAdvice;

    // `audio` may be null: then a stream that asks for system audio fails to start.
    explicit CaptureEngine(std::shared_ptr<CaptureBackend> backend, std::shared_ptr<SystemAudioBackend> audio = {},
        QObject* parent = nullptr);
    // Stops the stream.
    ~CaptureEngine() override;

    const std::vector<CaptureDisplay>& availableDisplays() const { return displays; }
    const std::vector<CaptureWindow>& availableWindows() const { return windows; }
    const std::optional<CaptureSource>& selectedSource() const { return selected; }
    void setSelectedSource(const std::optional<CaptureSource>& source);
    const std::optional<QString>& errorMessage() const { return error; }
    // Null until the first preview; the last one stays after the stream stops.
    QImage latestPreview() const { return preview; }
    bool isStreaming() const { return streaming; }
    int outputWidth() const { return width; }
    int outputHeight() const { return height; }
    // This program among the applications a capture can leave out, if the backend offers it.
    const std::optional<CaptureApplication>& myApplication() const { return ownApplication; }

    // Where frames and system audio go. Set once by the owner; may stay unset.
    void setRecorder(SegmentedRecorder* recorder);
    SegmentedRecorder* recorder() const;

    // The identifier this program's own windows carry (on X11, the class of WM_CLASS), so that they
    // are never offered for capture. Defaults to the application name with a capital first letter,
    // which is the class Qt gives its windows.
    void setOwnBundleIdentifier(const QString& identifier) { ownBundleIdentifier = identifier; }
    // The windows this program shows now (X11 window ids), told by the window layer whenever they
    // change. With hideSelf, a display stream does not count their repaints as changes.
    void setOwnWindows(std::vector<uint32_t> ids) { ownWindows->set(std::move(ids)); }

    // Lists displays and windows on a worker thread and applies the result here; `done` runs
    // afterwards, whatever the outcome. On failure errorMessage says why and the lists stay.
    void refreshAvailableContent(std::function<void()> done = {});

    // Stops any running stream, then starts one for the selected source (nothing at all without a
    // selection). Returns once the stream runs or has failed; the outcome is in isStreaming and
    // errorMessage. A stream that later ends by itself is let go and reported by streamStopped.
    void startStream(int width, int height, int fps, bool showCursor, bool hideSelf, bool captureSystemAudio);
    // Never fails. The last preview stays on show.
    void stopStream();

    // Blocking on the display server. A window's present frame, or none if it is gone.
    std::optional<QRectF> liveFrame(uint32_t windowID) const;
    // The selected window with its live frame (the listed one if that can't be had); none unless a
    // window is selected.
    std::optional<WindowScope> selectedWindowScope() const;

    // The screen, for single grabs (area monitor, thumbnails). Any thread.
    const std::shared_ptr<CaptureBackend>& backend() const { return screen; }
    // Whether the desktop's dialog chooses the one source there is, instead of lists to pick from.
    bool sourceChosenByDesktop() const { return screen->desktopChoosesSource(); }

    // Main thread: a frame that the capture thread has already handed to the recorder, on its way
    // to frameSink; a preview made for it on the capture thread (null when none was due) becomes
    // latestPreview.
    void handleFrame(const VideoFrame& frame, const QImage& preview = {});

    // Whether previews are made at all; on by default. Scaling a large frame down is most of the
    // engine's own work, so a session that shows no picture (headless, a minimised window) turns
    // them off. Takes effect at the next frame.
    void setPreviewEnabled(bool enabled) { previewRequest->setEnabled(enabled); }
    bool isPreviewEnabled() const { return previewRequest->isEnabled(); }
    // The size in pixels at which the window shows the preview: previews are scaled once, on the
    // capture thread, to fit it (aspect kept, never enlarged, at most PreviewMaker::maxHeight
    // high). An empty size asks for none. Until it is set, previews are bounded by the height
    // alone. Takes effect at the next frame.
    void setPreviewSize(QSize size) { previewRequest->setSize(size); }
    QSize previewSize() const { return previewRequest->size(); }

    // The stream settings that startStream asks for: sizes even and at least 2, fps at least 1.
    static StreamConfiguration makeConfiguration(int width, int height, int fps, bool showCursor, bool captureAudio);
    // The filter of a source. A region is its display's filter with the rectangle as sourceRect.
    static ContentFilter makeFilter(
        const CaptureSource& source, bool hideSelf, const std::optional<CaptureApplication>& myApplication);

    // Observers for tests and tools: the frames handleFrame passes on (main thread; frames whose hop
    // found no room are not seen here, though the recorder had them), every system audio buffer
    // (audio thread; set before startStream).
    std::function<void(const VideoFrame&)> frameSink;
    std::function<void(const AudioBuffer&)> audioSink;
    // The clock of the preview throttle, monotonic nanoseconds; tests put their own here before
    // startStream. Read on the capture thread.
    std::function<int64_t()> clock = monotonicNanoseconds;

signals:
    void availableDisplaysChanged();
    void availableWindowsChanged();
    void selectedSourceChanged();
    void errorMessageChanged();
    void latestPreviewChanged();
    void isStreamingChanged();
    void outputWidthChanged();
    void outputHeightChanged();
    // The running stream ended by itself (its window was closed, the display server went away):
    // it has been stopped and isStreaming is false. What comes instead is the owner's decision.
    void streamStopped(const QString& reason);

private:
    // What the capture and audio threads read: the recorder and the sound's observer.
    struct Route {
        QPointer<SegmentedRecorder> recorder;
        std::function<void(const AudioBuffer&)> audioSink;
    };

    void applyContent(const CaptureBackend::ContentResult& result);
    // The stream of `generation` reported its end; a report of a stream since replaced is ignored.
    void streamEnded(uint64_t generation, const QString& reason);
    void setErrorMessage(const std::optional<QString>& message);
    void setStreaming(bool value);
    void setOutputSize(int w, int h);
    void showPictureWithoutPreview();

    std::shared_ptr<CaptureBackend> screen;
    std::shared_ptr<SystemAudioBackend> systemAudio;
    QString ownBundleIdentifier;

    std::vector<CaptureDisplay> displays;
    std::vector<CaptureWindow> windows;
    std::optional<CaptureSource> selected;
    std::optional<QString> error;
    std::optional<CaptureApplication> ownApplication;
    QImage preview;
    // The newest frame that came too soon after a preview to get one, until a later preview or
    // the catch-up timer.
    QImage pictureWithoutPreview;
    QTimer previewCatchUp;
    bool streaming = false;
    int width = 1920;
    int height = 1080;
    QPointer<SegmentedRecorder> recorderLink;
    // Shared with the running stream's PreviewMaker.
    std::shared_ptr<PreviewRequest> previewRequest = std::make_shared<PreviewRequest>();
    // Shared with the running stream.
    std::shared_ptr<OwnWindows> ownWindows = std::make_shared<OwnWindows>();

    const std::shared_ptr<Guarded<Route>> route = std::make_shared<Guarded<Route>>();
    std::shared_ptr<StreamOutput> streamOutput;
    std::unique_ptr<CaptureStream> stream;
    std::unique_ptr<CaptureStream> audioStream;
    // Counts the streams started, so that the end of one is never taken for the end of the next.
    uint64_t streamGeneration = 0;
    // Frames posted to the main thread for the preview and not yet handled; beyond
    // framesToWindowLimit none are posted, so a stalled main thread holds only that many.
    std::shared_ptr<std::atomic<int>> framesInFlight = std::make_shared<std::atomic<int>>(0);

    // Listing runs here; destroyed before the backend it uses.
    QThreadPool listingPool;
};

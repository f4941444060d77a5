#include "capture/CaptureEngine.h"

#include "capture/WindowListFilter.h"
#include "recorder/SegmentedRecorder.h"

#include <QCoreApplication>

#include <algorithm>

const QString CaptureEngine::captureFailedAdvice
    = QStringLiteral("Check that the X server named by DISPLAY and the PulseAudio server are running.");

namespace {

QString capitalised(QString name)
{
    if (!name.isEmpty()) name[0] = name[0].toUpper();
    return name;
}

int evenAtLeastTwo(int value)
{
    return std::max(2, value - value % 2);
}

} // namespace

CaptureEngine::CaptureEngine(
    std::shared_ptr<CaptureBackend> backend, std::shared_ptr<SystemAudioBackend> audio, QObject* parent)
    : QObject(parent)
    , screen(std::move(backend))
    , systemAudio(std::move(audio))
    , ownBundleIdentifier(capitalised(QCoreApplication::applicationName()))
{
    listingPool.setMaxThreadCount(1);
    previewCatchUp.setSingleShot(true);
    previewCatchUp.setInterval(int(PreviewMaker::intervalNs / 1'000'000));
    connect(&previewCatchUp, &QTimer::timeout, this, &CaptureEngine::showPictureWithoutPreview);
}

CaptureEngine::~CaptureEngine()
{
    stopStream();
}

void CaptureEngine::setSelectedSource(const std::optional<CaptureSource>& source)
{
    // Equal sources are the same source, but a new payload (a moved window) is still worth keeping.
    const bool changed = selected.has_value() != source.has_value() || (selected && *selected != *source);
    selected = source;
    if (changed) emit selectedSourceChanged();
}

void CaptureEngine::setRecorder(SegmentedRecorder* recorder)
{
    recorderLink = recorder;
    route->lock()->recorder = recorder;
}

SegmentedRecorder* CaptureEngine::recorder() const
{
    return recorderLink.data();
}

void CaptureEngine::refreshAvailableContent(std::function<void()> done)
{
    listingPool.start([this, backend = screen, done = std::move(done)]() mutable {
        CaptureBackend::ContentResult result = backend->shareableContent();
        QMetaObject::invokeMethod(
            this,
            [this, result = std::move(result), done = std::move(done)] {
                applyContent(result);
                if (done) done();
            },
            Qt::QueuedConnection);
    });
}

void CaptureEngine::applyContent(const CaptureBackend::ContentResult& result)
{
    if (!result.content) {
        setErrorMessage(QStringLiteral("Couldn't list capture sources: ") + result.error);
        return;
    }
    const ShareableContent& content = *result.content;
    displays = content.displays;
    emit availableDisplaysChanged();

    ownApplication.reset();
    for (const CaptureApplication& app : content.applications) {
        if (app.bundleIdentifier == ownBundleIdentifier) {
            ownApplication = app;
            break;
        }
    }

    windows = WindowListFilter::pickable(content.windows, ownBundleIdentifier, screen->systemWindowRules());
    emit availableWindowsChanged();

    // A selection that exists is kept even if its source has gone since.
    if (!selected && !displays.empty()) setSelectedSource(CaptureSource::display(displays.front()));
}

StreamConfiguration CaptureEngine::makeConfiguration(int width, int height, int fps, bool showCursor, bool captureAudio)
{
    StreamConfiguration configuration;
    configuration.width = evenAtLeastTwo(width);
    configuration.height = evenAtLeastTwo(height);
    configuration.minimumFrameInterval = MediaTime(1, std::max(1, fps));
    configuration.showsCursor = showCursor;
    configuration.queueDepth = 8;
    configuration.capturesAudio = captureAudio;
    return configuration;
}

ContentFilter CaptureEngine::makeFilter(
    const CaptureSource& source, bool hideSelf, const std::optional<CaptureApplication>& myApplication)
{
    ContentFilter filter;
    if (source.kind() == CaptureSource::Kind::window) {
        filter.kind = ContentFilter::Kind::window;
        filter.window = source.capturedWindow();
        return filter;
    }
    filter.kind = ContentFilter::Kind::display;
    filter.display = source.capturedDisplay();
    if (hideSelf && myApplication) filter.excludedApplications.push_back(*myApplication);
    return filter;
}

void CaptureEngine::startStream(int w, int h, int fps, bool showCursor, bool hideSelf, bool captureSystemAudio)
{
    if (!selected) return;
    // Never more than one stream: a running one is stopped first, even for the same source.
    stopStream();

    const ContentFilter filter = makeFilter(*selected, hideSelf, ownApplication);
    StreamConfiguration configuration = makeConfiguration(w, h, fps, showCursor, captureSystemAudio);
    if (selected->kind() == CaptureSource::Kind::region) configuration.sourceRect = selected->localPointRect();
    // Where our windows cannot be left out of the picture, hiding them at least means that their
    // own repaints do not count as changes.
    if (hideSelf) configuration.ownWindows = ownWindows;
    setOutputSize(configuration.width, configuration.height);

    route->lock()->audioSink = audioSink;
    auto output = std::make_shared<StreamOutput>();
    auto previews = std::make_shared<PreviewMaker>(previewRequest, clock);
    output->onFrame = [this, route = route, inFlight = framesInFlight, previews](const VideoFrame& frame) {
        // The ring first, from this thread: whatever the main thread is doing.
        const QPointer<SegmentedRecorder> recorder = route->lock()->recorder;
        if (SegmentedRecorder* r = recorder.data()) r->ingest(frame);
        if (inFlight->fetch_add(1) >= framesToWindowLimit) {
            // The window is behind: it misses this picture, nothing else does.
            inFlight->fetch_sub(1);
            return;
        }
        // Scaled here, so that the main thread only shows it.
        QImage preview = previews->make(frame.image).value_or(QImage());
        // The stream is stopped before this object goes, so `this` outlives the call; a frame
        // still queued when it goes is discarded with its other posted events.
        QMetaObject::invokeMethod(
            this,
            [this, frame, preview = std::move(preview), inFlight] {
                inFlight->fetch_sub(1);
                handleFrame(frame, preview);
            },
            Qt::QueuedConnection);
    };
    output->onStop = [this, generation = ++streamGeneration](const QString& reason) {
        // As for frames: the stream is stopped before this object goes, and a report still queued
        // then goes with its other posted events.
        QMetaObject::invokeMethod(
            this, [this, generation, reason] { streamEnded(generation, reason); }, Qt::QueuedConnection);
    };
    output->onSkipped = [route = route] {
        const QPointer<SegmentedRecorder> recorder = route->lock()->recorder;
        if (SegmentedRecorder* r = recorder.data()) r->dropCounters()->add(DropCounters::Cause::captureBacklog);
    };
    output->onAudio = [route = route](const AudioBuffer& buffer) {
        QPointer<SegmentedRecorder> recorder;
        std::function<void(const AudioBuffer&)> sink;
        {
            auto locked = route->lock();
            recorder = locked->recorder;
            sink = locked->audioSink;
        }
        if (SegmentedRecorder* r = recorder.data()) r->ingestAudio(buffer);
        if (sink) sink(buffer);
    };
    streamOutput = output;

    auto fail = [this](const QString& reason) {
        setStreaming(false);
        setErrorMessage(QStringLiteral("Capture failed: ") + reason + QStringLiteral(". ") + captureFailedAdvice);
    };

    CaptureBackend::StreamStart started = screen->startCapture(filter, configuration, output);
    if (!started.stream) {
        fail(started.error);
        return;
    }
    if (captureSystemAudio) {
        if (!systemAudio) {
            started.stream->stop();
            fail(QStringLiteral("system audio is not available"));
            return;
        }
        SystemAudioBackend::Start audio
            = systemAudio->start([output](const AudioBuffer& buffer) { output->didOutputAudio(buffer); });
        if (!audio.stream) {
            started.stream->stop();
            fail(audio.error);
            return;
        }
        audioStream = std::move(audio.stream);
    }
    stream = std::move(started.stream);
    setStreaming(true);
    setErrorMessage(std::nullopt);
}

void CaptureEngine::stopStream()
{
    if (stream) stream->stop();
    if (audioStream) audioStream->stop();
    stream.reset();
    audioStream.reset();
    streamOutput.reset();
    setStreaming(false);
}

void CaptureEngine::streamEnded(uint64_t generation, const QString& reason)
{
    if (generation != streamGeneration || !stream) return;
    stopStream();
    emit streamStopped(reason);
}

std::optional<QRectF> CaptureEngine::liveFrame(uint32_t windowID) const
{
    return screen->windowFrame(windowID);
}

std::optional<CaptureEngine::WindowScope> CaptureEngine::selectedWindowScope() const
{
    if (!selected || selected->kind() != CaptureSource::Kind::window) return std::nullopt;
    const CaptureWindow& window = selected->capturedWindow();
    return WindowScope { window.windowID, liveFrame(window.windowID).value_or(window.frame) };
}

void CaptureEngine::handleFrame(const VideoFrame& frame, const QImage& shown)
{
    if (frameSink) frameSink(frame);
    // Turned off while the frame was on its way: the window no longer shows it.
    if (!previewRequest->isEnabled()) return;
    if (shown.isNull()) {
        // Too soon after the last preview. If it is the last frame of a burst no later one will
        // bring the screen's present picture, so it is shown once the interval has passed.
        pictureWithoutPreview = frame.image;
        if (!previewCatchUp.isActive()) previewCatchUp.start();
        return;
    }
    pictureWithoutPreview = QImage();
    previewCatchUp.stop();
    preview = shown;
    emit latestPreviewChanged();
}

void CaptureEngine::showPictureWithoutPreview()
{
    const QImage picture = std::exchange(pictureWithoutPreview, QImage());
    if (picture.isNull() || !previewRequest->isEnabled()) return;
    const QSize size = PreviewMaker::fittedSize(picture.size(), previewRequest->size());
    if (size.isEmpty()) return;
    preview = size == picture.size() ? picture : PreviewMaker::downscale(picture, size);
    emit latestPreviewChanged();
}

void CaptureEngine::setErrorMessage(const std::optional<QString>& message)
{
    if (error == message) return;
    error = message;
    emit errorMessageChanged();
}

void CaptureEngine::setStreaming(bool value)
{
    if (streaming == value) return;
    streaming = value;
    emit isStreamingChanged();
}

void CaptureEngine::setOutputSize(int w, int h)
{
    if (width != w) {
        width = w;
        emit outputWidthChanged();
    }
    if (height != h) {
        height = h;
        emit outputHeightChanged();
    }
}

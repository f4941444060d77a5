#include "capture/CaptureEngine.h"

#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <thread>

// The engine's rules against a scripted backend: the platform seam is the one place where a
// refused listing or a failed start can be produced on demand. Real streams are tested on a real
// X server in the integration tests.
namespace {

class ScriptedStream : public CaptureStream {
public:
    explicit ScriptedStream(int* stops)
        : stops(stops)
    {
    }
    ~ScriptedStream() override { stop(); }
    void stop() override
    {
        if (!stopped) ++*stops;
        stopped = true;
    }

private:
    int* stops;
    bool stopped = false;
};

class ScriptedBackend : public CaptureBackend {
public:
    ContentResult content;
    QString startError;
    int starts = 0;
    int stops = 0;
    ContentFilter lastFilter;
    StreamConfiguration lastConfiguration;
    std::shared_ptr<const StreamOutput> lastOutput;

    ContentResult shareableContent() override { return content; }
    WindowListFilter::SystemRules systemWindowRules() const override { return {}; }
    StreamStart startCapture(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output) override
    {
        ++starts;
        lastFilter = filter;
        lastConfiguration = configuration;
        lastOutput = std::move(output);
        if (!startError.isEmpty()) return { nullptr, startError };
        return { std::make_unique<ScriptedStream>(&stops), {} };
    }
    std::optional<QRectF> windowFrame(uint32_t id) override
    {
        if (id == 42) return QRectF(5, 6, 700, 500);
        return std::nullopt;
    }
    std::optional<QImage> grabRect(const QRectF&) override { return std::nullopt; }
    std::optional<QImage> grabWindowRect(uint32_t, const std::optional<QRectF>&) override { return std::nullopt; }
};

class ScriptedAudio : public SystemAudioBackend {
public:
    QString error;
    int stops = 0;
    Start start(std::function<void(const AudioBuffer&)>) override
    {
        if (!error.isEmpty()) return { nullptr, error };
        return { std::make_unique<ScriptedStream>(&stops), {} };
    }
};

CaptureDisplay display(uint32_t id, int w = 1920, int h = 1080)
{
    CaptureDisplay d;
    d.displayID = id;
    d.width = w;
    d.height = h;
    d.frame = QRect(0, 0, w, h);
    return d;
}

CaptureWindow window(uint32_t id)
{
    CaptureWindow w;
    w.windowID = id;
    w.isOnScreen = true;
    w.frame = QRectF(0, 0, 800, 600);
    w.title = QStringLiteral("Doc");
    w.owningApplication = CaptureApplication { QStringLiteral("Editor"), QStringLiteral("Editor"), 0 };
    return w;
}

void refresh(CaptureEngine& engine)
{
    bool done = false;
    engine.refreshAvailableContent([&done] { done = true; });
    QElapsedTimer timer;
    timer.start();
    while (!done && timer.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    ASSERT_TRUE(done);
}

VideoFrame frame(int w, int h, int64_t ns = 1)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    return VideoFrame { image, MediaTime::fromNanoseconds(ns) };
}

} // namespace

TEST(CaptureEngine, RefreshSelectsTheFirstDisplayOnlyWhenNothingIsSelected)
{
    auto backend = std::make_shared<ScriptedBackend>();
    backend->content.content = ShareableContent { { display(11), display(22) }, { window(5) }, {} };
    CaptureEngine engine(backend);
    refresh(engine);
    ASSERT_EQ(engine.availableDisplays().size(), 2u);
    EXPECT_EQ(engine.availableDisplays()[1].displayID, 22u);
    ASSERT_EQ(engine.availableWindows().size(), 1u);
    ASSERT_TRUE(engine.selectedSource());
    EXPECT_EQ(engine.selectedSource()->id(), QStringLiteral("display-11"));

    // A selection that exists stays, even once its source has gone.
    engine.setSelectedSource(CaptureSource::window(window(99)));
    refresh(engine);
    EXPECT_EQ(engine.selectedSource()->id(), QStringLiteral("window-99"));

    // No displays: nothing gets selected.
    CaptureEngine empty(backend);
    backend->content.content = ShareableContent {};
    refresh(empty);
    EXPECT_FALSE(empty.selectedSource());
    EXPECT_FALSE(empty.errorMessage());
}

TEST(CaptureEngine, RefusedListingKeepsTheFieldsAndSaysWhy)
{
    auto backend = std::make_shared<ScriptedBackend>();
    backend->content.content = ShareableContent { { display(11) }, { window(5) }, {} };
    CaptureEngine engine(backend);
    refresh(engine);

    backend->content = { std::nullopt, QStringLiteral("cannot open display :9") };
    refresh(engine);
    EXPECT_EQ(engine.errorMessage(), QStringLiteral("Couldn't list capture sources: cannot open display :9"));
    EXPECT_EQ(engine.availableDisplays().size(), 1u);
    EXPECT_EQ(engine.availableWindows().size(), 1u);
    EXPECT_EQ(engine.selectedSource()->id(), QStringLiteral("display-11"));

    // A later listing that works does not clear the message; a started stream does.
    backend->content.content = ShareableContent { { display(11) }, {}, {} };
    refresh(engine);
    EXPECT_TRUE(engine.errorMessage());
    engine.startStream(640, 360, 30, true, false, false);
    EXPECT_FALSE(engine.errorMessage());
}

TEST(CaptureEngine, ConfigurationSizesAndRate)
{
    StreamConfiguration c = CaptureEngine::makeConfiguration(1921, 1081, 0, false, true);
    EXPECT_EQ(c.width, 1920);
    EXPECT_EQ(c.height, 1080);
    EXPECT_EQ(c.minimumFrameInterval, MediaTime(1, 1));
    EXPECT_EQ(c.queueDepth, 8);
    EXPECT_FALSE(c.showsCursor);
    EXPECT_TRUE(c.capturesAudio);
    c = CaptureEngine::makeConfiguration(1, -7, 60, true, false);
    EXPECT_EQ(c.width, 2);
    EXPECT_EQ(c.height, 2);
    EXPECT_EQ(c.minimumFrameInterval, MediaTime(1, 60));
}

TEST(CaptureEngine, StartAndStopFollowTheSelection)
{
    auto backend = std::make_shared<ScriptedBackend>();
    auto audio = std::make_shared<ScriptedAudio>();
    CaptureEngine engine(backend, audio);

    // Nothing selected: nothing happens at all.
    engine.startStream(1280, 720, 30, true, false, false);
    EXPECT_EQ(backend->starts, 0);
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_EQ(engine.outputWidth(), 1920);

    const CaptureDisplay d = display(3, 2560, 1440);
    engine.setSelectedSource(CaptureSource::region(d, QRectF(100, 50, 640, 360), 640, 360));
    engine.startStream(1281, 721, 24, false, true, true);
    EXPECT_TRUE(engine.isStreaming());
    EXPECT_EQ(engine.outputWidth(), 1280);
    EXPECT_EQ(engine.outputHeight(), 720);
    EXPECT_EQ(backend->lastFilter.kind, ContentFilter::Kind::display);
    EXPECT_EQ(backend->lastFilter.display.displayID, 3u);
    // hideSelf without an own application: an unfiltered display, and no error.
    EXPECT_TRUE(backend->lastFilter.excludedApplications.empty());
    EXPECT_EQ(backend->lastConfiguration.sourceRect, QRectF(100, 50, 640, 360));
    EXPECT_TRUE(backend->lastConfiguration.capturesAudio);

    // Restarting always stops the running stream first, also for the same source.
    engine.startStream(1280, 720, 24, false, true, true);
    EXPECT_EQ(backend->stops, 1);
    EXPECT_EQ(audio->stops, 1);

    engine.setSelectedSource(CaptureSource::window(window(42)));
    engine.startStream(800, 600, 30, true, true, false);
    EXPECT_EQ(backend->lastFilter.kind, ContentFilter::Kind::window);
    EXPECT_EQ(backend->lastFilter.window.windowID, 42u);
    EXPECT_FALSE(backend->lastConfiguration.sourceRect);
    EXPECT_EQ(audio->stops, 2);
    ASSERT_TRUE(engine.selectedWindowScope());
    EXPECT_EQ(engine.selectedWindowScope()->windowID, 42u);
    EXPECT_EQ(engine.selectedWindowScope()->frame, QRectF(5, 6, 700, 500)); // the live frame

    engine.stopStream();
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_EQ(backend->stops, 3);
    engine.stopStream(); // never fails, stops nothing twice
    EXPECT_EQ(backend->stops, 3);

    // A window whose live frame can't be had falls back to the listed one; no scope for displays.
    engine.setSelectedSource(CaptureSource::window(window(43)));
    EXPECT_EQ(engine.selectedWindowScope()->frame, QRectF(0, 0, 800, 600));
    engine.setSelectedSource(CaptureSource::display(d));
    EXPECT_FALSE(engine.selectedWindowScope());
}

TEST(CaptureEngine, AStreamThatEndsByItselfIsLetGoButTheEndOfAReplacedOneIsIgnored)
{
    auto backend = std::make_shared<ScriptedBackend>();
    auto audio = std::make_shared<ScriptedAudio>();
    CaptureEngine engine(backend, audio);
    QStringList stops;
    QObject::connect(&engine, &CaptureEngine::streamStopped, [&stops](const QString& why) { stops << why; });
    engine.setSelectedSource(CaptureSource::window(window(42)));
    engine.startStream(800, 600, 30, true, false, true);
    const std::shared_ptr<const StreamOutput> replaced = backend->lastOutput;
    engine.startStream(800, 600, 30, true, false, true);
    ASSERT_NE(backend->lastOutput, replaced);

    // The first stream's end arrives late, after the restart: the running stream stays.
    std::thread([&] { replaced->didStopWithError(QStringLiteral("the window was closed")); }).join();
    QCoreApplication::processEvents();
    EXPECT_TRUE(engine.isStreaming());
    EXPECT_EQ(backend->stops, 1);
    EXPECT_TRUE(stops.isEmpty());

    // The running one ends on its capture thread: stopped with its audio, and said once.
    std::thread([&] { backend->lastOutput->didStopWithError(QStringLiteral("the window was closed")); }).join();
    QElapsedTimer waited;
    waited.start();
    while (engine.isStreaming() && waited.elapsed() < 2000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_EQ(backend->stops, 2);
    EXPECT_EQ(audio->stops, 2);
    EXPECT_EQ(stops, QStringList { QStringLiteral("the window was closed") });
}

TEST(CaptureEngine, ExcludesItsOwnApplicationWhenTheBackendOffersIt)
{
    auto backend = std::make_shared<ScriptedBackend>();
    const CaptureApplication self { QStringLiteral("Velotape"), QStringLiteral("Velotape"), 77 };
    backend->content.content = ShareableContent { { display(1) }, {},
        { CaptureApplication { QStringLiteral("X"), QStringLiteral("X"), 1 }, self } };
    CaptureEngine engine(backend);
    engine.setOwnBundleIdentifier(QStringLiteral("Velotape"));
    refresh(engine);
    ASSERT_TRUE(engine.myApplication());
    EXPECT_EQ(engine.myApplication()->processID, 77);
    engine.startStream(640, 360, 30, true, true, false);
    ASSERT_EQ(backend->lastFilter.excludedApplications.size(), 1u);
    EXPECT_EQ(backend->lastFilter.excludedApplications[0].processID, 77);
    engine.startStream(640, 360, 30, true, false, false);
    EXPECT_TRUE(backend->lastFilter.excludedApplications.empty());
}

TEST(CaptureEngine, FailedStartsSayCaptureFailedAndLeaveNothingRunning)
{
    auto backend = std::make_shared<ScriptedBackend>();
    auto audio = std::make_shared<ScriptedAudio>();
    CaptureEngine engine(backend, audio);
    engine.setSelectedSource(CaptureSource::display(display(1)));

    backend->startError = QStringLiteral("the X server lacks the DAMAGE extension");
    engine.startStream(1001, 501, 30, true, false, false);
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_EQ(engine.errorMessage(),
        QStringLiteral("Capture failed: the X server lacks the DAMAGE extension. ")
            + CaptureEngine::captureFailedAdvice);
    // The size is that of the attempted stream, whether it started or not.
    EXPECT_EQ(engine.outputWidth(), 1000);
    EXPECT_EQ(engine.outputHeight(), 500);
    // The permission view of the interface must not take an X11 failure for a missing permission.
    EXPECT_FALSE(engine.errorMessage()->contains(QStringLiteral("permission"), Qt::CaseInsensitive));
    EXPECT_FALSE(engine.errorMessage()->contains(QStringLiteral("declined"), Qt::CaseInsensitive));

    // The screen starts but the system audio doesn't: the screen stream is stopped again.
    backend->startError.clear();
    audio->error = QStringLiteral("cannot reach the PulseAudio server: Connection refused");
    engine.startStream(1000, 500, 30, true, false, true);
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_EQ(backend->starts, 2);
    EXPECT_EQ(backend->stops, 1);
    EXPECT_TRUE(engine.errorMessage()->startsWith(
        QStringLiteral("Capture failed: cannot reach the PulseAudio server: Connection refused. ")));

    // No system audio backend at all.
    CaptureEngine silent(backend);
    silent.setSelectedSource(CaptureSource::display(display(1)));
    silent.startStream(1000, 500, 30, true, false, true);
    EXPECT_FALSE(silent.isStreaming());
    EXPECT_EQ(backend->stops, 2);
}

TEST(CaptureEngine, PreviewsAreThrottledAndFittedToTheSizeTheWindowShows)
{
    auto request = std::make_shared<PreviewRequest>();
    int64_t now = 1'000'000'000;
    PreviewMaker maker(request, [&now] { return now; });
    // No more than 15 a second: 60 ms after one there is none, 130 ms after it the next.
    EXPECT_TRUE(maker.make(frame(64, 36).image));
    now += 60'000'000;
    EXPECT_FALSE(maker.make(frame(64, 36).image));
    now += 70'000'000;
    EXPECT_TRUE(maker.make(frame(64, 36).image));

    // Until the window says how large it shows them, only the height is bounded; never enlarged.
    now += 100'000'000;
    EXPECT_EQ(maker.make(frame(400, 4000).image)->size(), QSize(72, 720));
    now += 100'000'000;
    EXPECT_EQ(maker.make(frame(300, 500).image)->size(), QSize(300, 500));

    // Fitted once into the window's size, the aspect kept, the colours those of the frame.
    request->setSize(QSize(800, 600));
    now += 100'000'000;
    QImage big(1920, 1080, QImage::Format_RGB32);
    big.fill(QColor(30, 200, 90));
    const std::optional<QImage> fitted = maker.make(big);
    ASSERT_TRUE(fitted);
    EXPECT_EQ(fitted->size(), QSize(800, 450));
    const QColor middle = fitted->pixelColor(400, 225);
    EXPECT_NEAR(middle.red(), 30, 3);
    EXPECT_NEAR(middle.green(), 200, 3);
    EXPECT_NEAR(middle.blue(), 90, 3);

    // Fine detail is averaged, not skipped: pixels alternating black and white read as grey.
    request->setSize(QSize(960, 540));
    now += 100'000'000;
    QImage checker(1920, 1080, QImage::Format_RGB32);
    for (int y = 0; y < checker.height(); ++y)
        for (int x = 0; x < checker.width(); ++x)
            checker.setPixel(x, y, (x + y) % 2 ? 0xffffffffu : 0xff000000u);
    const std::optional<QImage> grey = maker.make(checker);
    ASSERT_TRUE(grey);
    EXPECT_EQ(grey->size(), QSize(960, 540));
    EXPECT_EQ(qGray(grey->pixel(100, 100)), 127);
    EXPECT_EQ(qGray(grey->pixel(959, 539)), 127);

    // Nobody shows them, or the window is hidden: none is made, and the turn is not used up.
    request->setSize(QSize());
    now += 100'000'000;
    EXPECT_FALSE(maker.make(big));
    request->setSize(QSize(320, 320));
    request->setEnabled(false);
    EXPECT_FALSE(maker.make(big));
    request->setEnabled(true);
    EXPECT_EQ(maker.make(big)->size(), QSize(320, 180));
}

TEST(CaptureEngine, PreviewsMadeOnTheCaptureSideBecomeTheLatestPreview)
{
    auto backend = std::make_shared<ScriptedBackend>();
    CaptureEngine engine(backend);
    int64_t now = 1'000'000'000;
    engine.clock = [&now] { return now; };
    engine.setPreviewSize(QSize(640, 400));
    engine.setSelectedSource(CaptureSource::display(display(1)));
    engine.startStream(1280, 720, 30, true, false, false);
    ASSERT_TRUE(backend->lastOutput);
    int previews = 0;
    int delivered = 0;
    QObject::connect(&engine, &CaptureEngine::latestPreviewChanged, [&previews] { ++previews; });
    engine.frameSink = [&delivered](const VideoFrame&) { ++delivered; };

    backend->lastOutput->didOutputFrame(frame(1280, 720, 1));
    now += 10'000'000;
    VideoFrame second = frame(1280, 720, 2);
    second.image.fill(Qt::red);
    backend->lastOutput->didOutputFrame(second);
    QCoreApplication::processEvents();
    EXPECT_EQ(delivered, 2); // every frame is passed on, throttled or not
    EXPECT_EQ(previews, 1);
    EXPECT_EQ(engine.latestPreview().size(), QSize(640, 360));
    // The throttled frame is the screen's picture until something changes again, however long
    // that takes: it is shown once the interval has passed.
    EXPECT_NE(engine.latestPreview().pixelColor(10, 10), QColor(Qt::red));
    ASSERT_TRUE(spinUntil([&previews] { return previews == 2; }, 1000));
    EXPECT_EQ(engine.latestPreview().size(), QSize(640, 360));
    EXPECT_EQ(engine.latestPreview().pixelColor(10, 10), QColor(Qt::red));

    // Turned off with frames on their way: those frames still go on, their previews are not shown.
    now += 100'000'000;
    backend->lastOutput->didOutputFrame(frame(1280, 720, 3));
    engine.setPreviewEnabled(false);
    QCoreApplication::processEvents();
    EXPECT_EQ(delivered, 3);
    EXPECT_EQ(previews, 2);
}

TEST(CaptureEngine, FramesHopToTheMainThreadWithABoundedQueue)
{
    auto backend = std::make_shared<ScriptedBackend>();
    CaptureEngine engine(backend);
    engine.setSelectedSource(CaptureSource::display(display(1)));
    engine.startStream(64, 36, 30, true, false, false);
    ASSERT_TRUE(backend->lastOutput);
    std::vector<int64_t> seen;
    engine.frameSink = [&seen](const VideoFrame& f) { seen.push_back(f.pts.value); };

    // Samples without a picture or a time never get anywhere.
    backend->lastOutput->didOutputFrame(VideoFrame { QImage(), MediaTime::fromNanoseconds(1) });
    backend->lastOutput->didOutputFrame(VideoFrame { frame(64, 36).image, MediaTime::invalid() });
    // A stalled main thread: twelve frames arrive before it gets to any of them; only the first few
    // wait for it, each holding a picture the capture would want back.
    for (int i = 0; i < 12; ++i)
        backend->lastOutput->didOutputFrame(frame(64, 36, 100 + i));
    EXPECT_TRUE(seen.empty()); // nothing is handled on the capture side
    QCoreApplication::processEvents();
    static_assert(CaptureEngine::framesToWindowLimit == 2);
    EXPECT_EQ(seen, (std::vector<int64_t> { 100, 101 }));
    // Room again once they were handled.
    backend->lastOutput->didOutputFrame(frame(64, 36, 200));
    QCoreApplication::processEvents();
    EXPECT_EQ(seen.back(), 200);

    // After a stop the last preview stays on show.
    engine.stopStream();
    EXPECT_FALSE(engine.latestPreview().isNull());
}

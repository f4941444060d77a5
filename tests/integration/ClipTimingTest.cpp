#include "../recorder/ClipProbe.h"
#include "CaptureTestSupport.h"
#include "X11TestClient.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// The real capture on a private X server and PulseAudio, into the real ring, on the real clock: a
// clip covers the time that passed, whether the screen changed or not.
using namespace CaptureTestSupport;

namespace {

constexpr QSize screen(320, 192);
constexpr double bufferSeconds = 2.0;
constexpr double frameInterval = 1.0 / 30;

double seconds(int64_t ns)
{
    return ns / 1e9;
}

void wait(double s)
{
    spinUntil([] { return false; }, int(s * 1000));
}

struct Session {
    TestDesktop desktop;
    QString error;
    std::unique_ptr<X11TestClient> client; // once the desktop runs
    xcb_window_t window = 0;
    std::unique_ptr<CaptureEngine> engine;
    std::unique_ptr<SegmentedRecorder> recorder;
    std::optional<int64_t> firstFrameAt;
    QString saved;
    QString failed;

    Session()
    {
        error = desktop.start({ .width = screen.width(), .height = screen.height(), .audio = true });
        if (!error.isEmpty()) return;
        client = std::make_unique<X11TestClient>();
        window = client->create({ .rect = QRect(QPoint(0, 0), screen), .wmClass = "Chart", .title = "chart" });
        client->paintIndex(window, screen, 1);
        engine = std::make_unique<CaptureEngine>(
            std::make_shared<X11CaptureBackend>(), std::make_shared<PulseSystemAudio>());
        recorder = std::make_unique<SegmentedRecorder>();
        recorder->onFinished = [this](const QString& path) { saved = path; };
        recorder->onError = [this](const QString& text) { failed = text; };
        engine->setRecorder(recorder.get());
        engine->setPreviewEnabled(false);
        engine->frameSink = [this](const VideoFrame& f) {
            if (!firstFrameAt) firstFrameAt = f.pts.value;
        };
        refresh(*engine);
        recorder->configure(screen.width(), screen.height(), 2, bufferSeconds, 30);
        recorder->setAudioEnabled(true);
        engine->startStream(screen.width(), screen.height(), 30, false, false, true);
        if (!engine->isStreaming()) error = engine->errorMessage().value_or(QStringLiteral("no stream"));
        recorder->armBuffering();
    }
    ~Session()
    {
        if (engine) engine->stopStream();
    }

    // From bufferSeconds before the first press, or the first frame if that came later, to the
    // second press.
    double expectedLength(int64_t pressed, int64_t released) const
    {
        return seconds(released - pressed) + std::min(bufferSeconds, seconds(pressed - firstFrameAt.value_or(pressed)));
    }

    // Records from now until `during` has run; returns the clip's path (empty on failure) and the
    // clock at both presses.
    QString record(const std::function<void()>& during, int64_t* pressedAt, int64_t* releasedAt)
    {
        saved.clear();
        failed.clear();
        *pressedAt = monotonicNanoseconds();
        recorder->startRecording(QDir::temp().filePath("unused.mp4"));
        during();
        *releasedAt = monotonicNanoseconds();
        recorder->stopRecording();
        spinUntil([&] { return !saved.isEmpty() || !failed.isEmpty(); }, 20000);
        return saved;
    }
};

} // namespace

TEST(ClipTiming, AStillRecordingLastsAsLongAsItWasHeldWithItsSound)
{
    Session s;
    ASSERT_EQ(s.error, QString());
    wait(3.0); // nothing changes: the buffer fills with time all the same
    ASSERT_TRUE(s.firstFrameAt);
    int64_t pressed = 0, released = 0;
    const QString clip = s.record([] { wait(8.0); }, &pressed, &released);
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    ASSERT_FALSE(probe.frames.empty());
    EXPECT_NEAR(probe.videoEnd - probe.frames.front().seconds, s.expectedLength(pressed, released), 2 * frameInterval);
    EXPECT_LE(probe.frames.size(), 6u); // a picture a segment, not one a frame interval
    // System audio (the null sink's silence) runs the whole length, in step with the picture.
    EXPECT_NEAR(probe.audioSeconds, probe.videoEnd - probe.frames.front().seconds, 0.05);
    EXPECT_NEAR(probe.audioStart, probe.frames.front().seconds, 0.05);
}

TEST(ClipTiming, AStillStretchAcrossASegmentBoundaryIsHeldForItsRealLength)
{
    Session s;
    ASSERT_EQ(s.error, QString());
    int64_t lastBeforeStill = 0, firstAfterStill = 0;
    int64_t pressed = 0, released = 0;
    const QString clip = s.record(
        [&] {
            for (int i = 2; i < 11; ++i) { // changing for a second
                s.client->paintIndex(s.window, screen, i);
                wait(0.1);
            }
            s.client->paintIndex(s.window, screen, 11);
            lastBeforeStill = monotonicNanoseconds();
            wait(6.5); // still, across a segment boundary whatever the phase
            s.client->paintIndex(s.window, screen, 12);
            firstAfterStill = monotonicNanoseconds();
            for (int i = 13; i < 20; ++i) {
                wait(0.1);
                s.client->paintIndex(s.window, screen, i);
            }
            wait(0.3);
        },
        &pressed, &released);
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    auto firstShowing = [&](int index) {
        const auto f = std::find_if(
            probe.frames.begin(), probe.frames.end(), [&](const ClipProbe::Frame& x) { return x.index == index; });
        return f == probe.frames.end() ? -1.0 : f->seconds;
    };
    const double stillStarts = firstShowing(11), stillEnds = firstShowing(12);
    ASSERT_GE(stillStarts, 0);
    ASSERT_GE(stillEnds, 0);
    EXPECT_NEAR(stillEnds - stillStarts, seconds(firstAfterStill - lastBeforeStill), 0.1);
    // The picture before the still stretch is what shows all through it.
    for (double t = stillStarts + 0.2; t < stillEnds - 0.1; t += 0.5) {
        const ClipProbe::Frame* shown = probe.frameAt(t);
        ASSERT_NE(shown, nullptr);
        EXPECT_EQ(shown->index, 11) << "at " << t << " s";
    }
    EXPECT_NEAR(probe.videoEnd - probe.frames.front().seconds, s.expectedLength(pressed, released), 2 * frameInterval);
    EXPECT_NEAR(probe.audioSeconds, probe.videoEnd - probe.frames.front().seconds, 0.05);
}

TEST(ClipTiming, ABusyMainThreadLeavesNoHoleInTheClip)
{
    Session s;
    ASSERT_EQ(s.error, QString());
    // A painter of its own, on its own X connection and thread, so that the screen keeps changing
    // while the main thread is held.
    std::atomic<bool> painting { true };
    std::atomic<int> painted { 100 };
    std::thread painter([&] {
        X11TestClient client;
        for (int i = 100; painting; ++i) {
            client.paintIndex(s.window, screen, i);
            painted = i;
            std::this_thread::sleep_for(std::chrono::milliseconds(33));
        }
    });
    wait(bufferSeconds + 0.5); // the buffer is full of moving pictures
    int stallFirst = 0, stallLast = 0;
    int64_t pressed = 0, released = 0;
    const QString clip = s.record(
        [&] {
            wait(1.0);
            // A slow paint, a modal dialog: the main thread does nothing else for 3 s.
            stallFirst = painted + 1;
            std::this_thread::sleep_for(std::chrono::seconds(3));
            stallLast = painted;
            wait(1.0);
        },
        &pressed, &released);
    painting = false;
    painter.join();
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();

    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    ASSERT_GT(probe.frames.size(), 2u);
    double longestGap = 0, gapAt = 0;
    for (size_t i = 1; i < probe.frames.size(); ++i) {
        const double gap = probe.frames[i].seconds - probe.frames[i - 1].seconds;
        if (gap > longestGap) std::tie(longestGap, gapAt) = std::tie(gap, probe.frames[i - 1].seconds);
    }
    // Pictures come every frame interval; a loaded machine may miss a few, never the stall's 3 s.
    EXPECT_LT(longestGap, 8 * frameInterval) << "the longest gap starts at " << gapAt << " s";
    // And they are the pictures painted while the main thread was held.
    const auto duringStall = std::count_if(probe.frames.begin(), probe.frames.end(),
        [&](const ClipProbe::Frame& f) { return f.index >= stallFirst && f.index <= stallLast; });
    EXPECT_GE(duringStall, (stallLast - stallFirst + 1) / 2) << "painted " << stallFirst << " to " << stallLast;
    EXPECT_NEAR(probe.videoEnd - probe.frames.front().seconds, s.expectedLength(pressed, released), 0.1);
}

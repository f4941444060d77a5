#include "CaptureTestSupport.h"
#include "core/Guarded.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "support/EventLoop.h"
#include "support/PortalDesktop.h"

#include <QColor>
#include <QGuiApplication>
#include <QRegion>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

// The Wayland backend against the real xdg-desktop-portal, PipeWire and WirePlumber, with our test
// backend behind the portal sending RGBx (the byte order that needs swapping): what the test
// paints must come back in the frames, grabs and regions, pixel by pixel.

namespace {

using CaptureTestSupport::near;

const QColor red(230, 20, 20), blue(20, 20, 230), green(20, 200, 20);

struct Frames {
    Guarded<std::vector<QImage>> images;
    Guarded<std::vector<FrameChanges>> changes; // one for each image
    Guarded<QStringList> stops;
    std::shared_ptr<StreamOutput> output = std::make_shared<StreamOutput>();

    Frames()
    {
        output->onFrame = [this](const VideoFrame& frame) {
            changes.lock()->push_back(frame.changes);
            images.lock()->push_back(frame.image.copy());
        };
        output->onStop = [this](const QString& reason) { stops.lock()->append(reason); };
    }
    size_t count() { return images.lock()->size(); }
    QImage last() { return images.lock()->back(); }
    bool waitFor(const std::function<bool(const QImage&)>& test, int timeoutMs = 5000)
    {
        return spinUntil(
            [&] {
                auto locked = images.lock();
                return !locked->empty() && test(locked->back());
            },
            timeoutMs);
    }
};

StreamConfiguration configuration(int width, int height)
{
    StreamConfiguration c;
    c.width = width;
    c.height = height;
    c.minimumFrameInterval = MediaTime(1, 30);
    return c;
}

class CaptureWayland : public ::testing::Test {
protected:
    PortalDesktop desktop;
    WaylandCaptureBackend::Kept kept;
    const QString& token = kept.token;
    Guarded<QStringList> notices;
    std::unique_ptr<WaylandCaptureBackend> backend;

    void SetUp() override
    {
        if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
            GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
        ASSERT_EQ(desktop.start(desktopOptions()), QString());
        // Named as the program names itself, so that every request is first offered to the
        // portal's host registry; Debian 12's portal has none, which must change nothing.
        QGuiApplication::setDesktopFileName(QStringLiteral("org.velotape.Test"));
        backend = makeBackend();
    }

    virtual PortalDesktop::Options desktopOptions() const
    {
        return { .size = QSize(640, 360), .format = QStringLiteral("RGBx") };
    }

    std::unique_ptr<WaylandCaptureBackend> makeBackend()
    {
        auto made
            = std::make_unique<WaylandCaptureBackend>(WaylandCaptureBackend::TokenStore { [this] { return kept; },
                                                          [this](const WaylandCaptureBackend::Kept& k) { kept = k; } },
                desktop.bus());
        made->setOnNotice([this](const QString& text) { notices.lock()->append(text); });
        return made;
    }

    uint chooserShown() { return desktop.control(QStringLiteral("ChooserShown")).toUInt(); }
    void fill(const QRect& r, const QColor& c)
    {
        desktop.control(QStringLiteral("Fill"), { r.x(), r.y(), r.width(), r.height(), c.name() });
    }
};

} // namespace

TEST_F(CaptureWayland, TheSharedScreenArrivesFittedCroppedAndGrabbedInItsOwnColours)
{
    const CaptureBackend::ContentResult content = backend->shareableContent();
    ASSERT_TRUE(content.content) << content.error.toStdString();
    ASSERT_EQ(content.content->displays.size(), 1u);
    const CaptureDisplay display = content.content->displays.front();
    EXPECT_EQ(QSize(display.width, display.height), QSize(640, 360)); // the stream's own size
    EXPECT_TRUE(content.content->windows.empty());

    fill(QRect(0, 0, 320, 360), red);
    fill(QRect(320, 0, 320, 360), blue);
    fill(QRect(480, 40, 80, 80), green);

    // Fitted into a smaller output: half size, the aspect kept.
    Frames whole;
    ContentFilter filter;
    filter.display = display;
    CaptureBackend::StreamStart started = backend->startCapture(filter, configuration(320, 180), whole.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(whole.waitFor([](const QImage& i) {
        return i.size() == QSize(320, 180) && near(i, 40, 90, red) && near(i, 200, 90, blue) && near(i, 260, 40, green);
    })) << (whole.count() ? "last frame differs" : "no frame came");

    // Single grabs read the running stream: the monitor needs no second session.
    const std::optional<QImage> grab = backend->grabRect(QRectF(300, 50, 200, 20));
    ASSERT_TRUE(grab);
    EXPECT_TRUE(near(*grab, 5, 10, red));
    EXPECT_TRUE(near(*grab, 30, 10, blue));
    EXPECT_TRUE(near(*grab, 190, 10, green));
    started.stream->stop();

    // A region is a crop of the same stream.
    Frames region;
    StreamConfiguration cropped = configuration(160, 160);
    cropped.sourceRect = QRectF(440, 0, 160, 160);
    started = backend->startCapture(filter, cropped, region.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(region.waitFor([](const QImage& i) {
        return i.size() == QSize(160, 160) && near(i, 10, 10, blue) && near(i, 80, 80, green)
            && near(i, 150, 150, blue);
    })) << region.count()
        << " frames";
    EXPECT_EQ(chooserShown(), 1u); // one session for all of it
}

TEST_F(CaptureWayland, AStillScreenSendsNothingAndAChangeSendsAFrame)
{
    ASSERT_TRUE(backend->shareableContent().content);
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    ASSERT_TRUE(spinUntil([&] { return frames.count() >= 1; }, 5000));
    spinFor(800);
    const size_t still = frames.count();
    spinFor(1000);
    EXPECT_EQ(frames.count(), still);
    fill(QRect(10, 10, 50, 50), red);
    EXPECT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 30, 30, red); }));
}

TEST_F(CaptureWayland, TheDesktopAsksOnceAndThenRestoresFromTheKeptToken)
{
    ASSERT_TRUE(backend->shareableContent().content);
    EXPECT_EQ(chooserShown(), 1u);
    EXPECT_FALSE(token.isEmpty());
    backend.reset();

    // The next run of the program passes the token: nobody is asked.
    backend = makeBackend();
    const CaptureBackend::ContentResult again = backend->shareableContent();
    ASSERT_TRUE(again.content) << again.error.toStdString();
    EXPECT_EQ(chooserShown(), 1u);

    // A token the desktop no longer knows asks again, and the new one is kept. The same screen
    // chosen again is nothing to tell the user.
    backend.reset();
    kept.token = QStringLiteral("0b5e55ed-0000-4000-8000-000000000000");
    backend = makeBackend();
    ASSERT_TRUE(backend->shareableContent().content);
    EXPECT_EQ(chooserShown(), 2u);
    EXPECT_NE(token, QStringLiteral("0b5e55ed-0000-4000-8000-000000000000"));
    EXPECT_TRUE(notices.lock()->isEmpty());

    // The monitor shared last time is unplugged: the desktop asks again, the user hears why, and
    // what was chosen now is restored the next time without a word.
    backend.reset();
    desktop.control(QStringLiteral("ReplaceMonitor"), { QStringLiteral("TEST-2"), false });
    backend = makeBackend();
    CaptureBackend::ContentResult replaced = backend->shareableContent();
    ASSERT_TRUE(replaced.content) << replaced.error.toStdString();
    EXPECT_EQ(replaced.content->displays.front().name, QStringLiteral("Screen TEST-2"));
    EXPECT_EQ(chooserShown(), 3u);
    EXPECT_EQ(*notices.lock(), QStringList { WaylandCaptureBackend::askedAgainNotice });
    backend.reset();
    backend = makeBackend();
    ASSERT_TRUE(backend->shareableContent().content);
    EXPECT_EQ(chooserShown(), 3u);
    EXPECT_EQ(notices.lock()->size(), 1);

    // A desktop that answers such a token with an error: asked once more, not a failure.
    backend.reset();
    desktop.control(QStringLiteral("ReplaceMonitor"), { QStringLiteral("TEST-3"), true });
    const QString refusedToken = token;
    backend = makeBackend();
    replaced = backend->shareableContent();
    ASSERT_TRUE(replaced.content) << replaced.error.toStdString();
    EXPECT_EQ(replaced.content->displays.front().name, QStringLiteral("Screen TEST-3"));
    EXPECT_EQ(chooserShown(), 4u);
    EXPECT_EQ(notices.lock()->value(1), WaylandCaptureBackend::refusedNotice);
    EXPECT_FALSE(token.isEmpty());
    EXPECT_NE(token, refusedToken);
}

TEST_F(CaptureWayland, ChoosingAgainShowsTheDialogOnceMoreAndItsTokenReplacesTheKeptOne)
{
    ASSERT_TRUE(backend->shareableContent().content);
    ASSERT_EQ(chooserShown(), 1u);
    const QString first = token;
    ASSERT_FALSE(first.isEmpty());

    // The kept token would restore without asking: asked for, the dialog shows all the same.
    backend->chooseSourceAgain();
    const CaptureBackend::ContentResult chosen = backend->shareableContent();
    ASSERT_TRUE(chosen.content) << chosen.error.toStdString();
    EXPECT_EQ(chooserShown(), 2u);
    EXPECT_FALSE(token.isEmpty());
    EXPECT_NE(token, first);
    EXPECT_TRUE(notices.lock()->isEmpty()); // the user asked: nothing to explain
    // Once only: the capture that follows runs on the session just chosen.
    fill(QRect(0, 0, 640, 360), green);
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 320, 180, green); }));
    EXPECT_EQ(chooserShown(), 2u);
    started.stream->stop();

    // The dialog closed without a choice: what was shared is restored from the kept token.
    const QString second = token;
    desktop.control(QStringLiteral("SetChooserAnswer"), { 1u });
    backend->chooseSourceAgain();
    const CaptureBackend::ContentResult kept = backend->shareableContent();
    ASSERT_TRUE(kept.content) << kept.error.toStdString();
    EXPECT_EQ(chooserShown(), 3u);
    EXPECT_EQ(token, second);

    // The next run restores the new choice without asking.
    backend.reset();
    backend = makeBackend();
    ASSERT_TRUE(backend->shareableContent().content);
    EXPECT_EQ(chooserShown(), 3u);
}

TEST_F(CaptureWayland, ACancelledChooserSaysSoAndStartsNoStream)
{
    desktop.control(QStringLiteral("SetChooserAnswer"), { 1u });
    const CaptureBackend::ContentResult content = backend->shareableContent();
    EXPECT_FALSE(content.content);
    EXPECT_EQ(content.error, QStringLiteral("Screen sharing was cancelled."));
    Frames frames;
    const CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    EXPECT_FALSE(started.stream);
    EXPECT_EQ(started.error, QStringLiteral("Screen sharing was cancelled."));
    EXPECT_TRUE(token.isEmpty());
}

TEST_F(CaptureWayland, TheDesktopEndingTheSessionEndsTheStreamOnceWithAReason)
{
    ASSERT_TRUE(backend->shareableContent().content);
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    ASSERT_TRUE(spinUntil([&] { return frames.count() >= 1; }, 5000));
    desktop.control(QStringLiteral("CloseSessions"));
    ASSERT_TRUE(spinUntil([&] { return !frames.stops.lock()->isEmpty(); }, 5000));
    const size_t atEnd = frames.count();
    fill(QRect(0, 0, 100, 100), red);
    spinFor(500);
    EXPECT_EQ(frames.count(), atEnd);
    EXPECT_EQ(*frames.stops.lock(), QStringList { QStringLiteral("the desktop stopped sharing the screen") });
}

TEST_F(CaptureWayland, APipeWireRestartPausesTheStreamAndItCarriesOnWithoutAskingAgain)
{
    ASSERT_TRUE(backend->shareableContent().content);
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    fill(QRect(0, 0, 100, 100), red);
    ASSERT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 50, 50, red); }));

    // The desktop's casts end with the old server; the new session is restored from the token.
    ASSERT_EQ(desktop.restartPipeWire(), QString());
    fill(QRect(200, 100, 100, 100), green);
    EXPECT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 250, 150, green) && near(i, 50, 50, red); }, 10000))
        << frames.count() << " frames";
    EXPECT_TRUE(frames.stops.lock()->isEmpty()) << frames.stops.lock()->join(QLatin1Char(';')).toStdString();
    EXPECT_EQ(chooserShown(), 1u);

    // A later end by the desktop is still reported.
    desktop.control(QStringLiteral("CloseSessions"));
    EXPECT_TRUE(spinUntil([&] { return !frames.stops.lock()->isEmpty(); }, 5000));
    started.stream->stop();
}

// The cursor goes beside the pictures: drawn in here when shown, where the desktop says, with its
// hotspot; switching it on and off asks the desktop nothing; a move alone re-sends the last
// picture with only the two cursor places changed.
TEST_F(CaptureWayland, TheCursorFromMetadataIsDrawnAtItsHotspotWhenShownWithoutANewSession)
{
    ASSERT_TRUE(backend->shareableContent().content);
    EXPECT_EQ(desktop.control(QStringLiteral("CursorMode")).toUInt(), 4u);
    fill(QRect(0, 0, 640, 360), blue);
    // 16x16, red on its left half; the hotspot at (4, 6) puts it at (196, 94).
    desktop.control(QStringLiteral("SetCursor"), { 200, 100, 4, 6, 16, 16, red.name() });

    Frames shown;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), shown.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(shown.waitFor([](const QImage& i) {
        return near(i, 197, 95, red) && near(i, 203, 109, red) && near(i, 195, 100, blue) && near(i, 197, 93, blue)
            && near(i, 204, 100, blue) && near(i, 211, 100, blue); // the right half is transparent
    })) << shown.count()
        << " frames";
    // Grabs are of the screen, not of the cursor over it.
    const std::optional<QImage> grab = backend->grabRect(QRectF(196, 94, 8, 16));
    ASSERT_TRUE(grab);
    EXPECT_TRUE(near(*grab, 2, 8, blue));
    started.stream->stop();

    // A region shows the cursor at its place within the region.
    Frames region;
    StreamConfiguration cropped = configuration(200, 200);
    cropped.sourceRect = QRectF(100, 50, 200, 200);
    started = backend->startCapture({}, cropped, region.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(region.waitFor([](const QImage& i) { return near(i, 98, 50, red) && near(i, 94, 50, blue); }))
        << region.count() << " frames";
    started.stream->stop();

    // Hidden: the same session, and a cursor that moves sends nothing.
    Frames hidden;
    StreamConfiguration noCursor = configuration(640, 360);
    noCursor.showsCursor = false;
    started = backend->startCapture({}, noCursor, hidden.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    ASSERT_TRUE(spinUntil([&] { return hidden.count() >= 1; }, 5000));
    EXPECT_TRUE(near(hidden.last(), 197, 95, blue));
    spinFor(300);
    const size_t before = hidden.count();
    desktop.control(QStringLiteral("MoveCursor"), { 400, 200 });
    spinFor(500);
    EXPECT_EQ(hidden.count(), before);
    started.stream->stop();

    // Shown again, from a desktop that sends the bitmap only when the shape changes: the shape
    // seen on the session's earlier streams is drawn at the new place.
    desktop.control(QStringLiteral("ResendCursorBitmap"), { false });
    Frames again;
    started = backend->startCapture({}, configuration(640, 360), again.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(again.waitFor([](const QImage& i) { return near(i, 397, 195, red) && near(i, 404, 195, blue); }))
        << again.count() << " frames";
    EXPECT_EQ(chooserShown(), 1u);
    EXPECT_EQ(desktop.control(QStringLiteral("ScreenCastSessionsMade")).toUInt(), 1u);
    started.stream->stop();
}

TEST_F(CaptureWayland, ACursorMoveAloneResendsTheLastPictureWithOnlyTheTwoCursorPlacesChanged)
{
    ASSERT_TRUE(backend->shareableContent().content);
    fill(QRect(0, 0, 640, 360), blue);
    fill(QRect(500, 300, 20, 20), green);
    desktop.control(QStringLiteral("SetCursor"), { 100, 100, 0, 0, 16, 16, red.name() });
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    ASSERT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 104, 104, red) && near(i, 510, 310, green); }));
    spinFor(300);

    // The bitmap is not sent again: the one kept is drawn at the new place.
    desktop.control(QStringLiteral("MoveCursor"), { 300, 200 });
    ASSERT_TRUE(frames.waitFor([](const QImage& i) {
        return near(i, 304, 204, red) && near(i, 104, 104, blue) && near(i, 510, 310, green);
    })) << frames.count()
        << " frames";
    const FrameChanges changes = frames.changes.lock()->back();
    ASSERT_TRUE(changes.known);
    QRegion damage;
    for (const QRect& r : changes.rects)
        damage += r;
    // Both cursor places, and nothing else.
    const QRegion places = QRegion(QRect(100, 100, 16, 16)) + QRect(300, 200, 16, 16);
    EXPECT_EQ(damage, places) << damage.rectCount() << " rectangles, bounded by " << damage.boundingRect().width()
                              << "x" << damage.boundingRect().height();

    // A new picture may differ anywhere: its changes do not claim otherwise.
    fill(QRect(40, 300, 30, 30), green);
    ASSERT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 55, 315, green) && near(i, 304, 204, red); }));
    const FrameChanges repainted = frames.changes.lock()->back();
    if (repainted.known) {
        QRegion covered;
        for (const QRect& r : repainted.rects)
            covered += r;
        EXPECT_TRUE(covered.contains(QRect(40, 300, 30, 30)));
    }
    started.stream->stop();
}

// A desktop whose node offers linear DMA-BUFs before shared memory: the stream takes them, maps
// them, and reads them in their byte order, whole and cropped. (The backend's "DMA-BUFs" are memfds:
// there is no GPU here.)
class CaptureWaylandDmaBuf : public CaptureWayland, public ::testing::WithParamInterface<const char*> {
protected:
    PortalDesktop::Options desktopOptions() const override
    {
        return { .size = QSize(640, 360), .format = QString::fromLatin1(GetParam()), .dmaBuf = true };
    }
};

TEST_P(CaptureWaylandDmaBuf, TheLinearDmaBufIsChosenAndReadInItsOwnColoursWholeAndCropped)
{
    fill(QRect(0, 0, 320, 360), red);
    fill(QRect(320, 0, 320, 360), blue);
    fill(QRect(480, 40, 80, 80), green);
    // This machine's PipeWire now and then hands a reader its first buffers without their memory,
    // and the stream then rightly falls back to shared memory (see CaptureWaylandUnmappableDmaBuf):
    // a new stream tries again, and one of three must read the DMA-BUFs.
    std::string handedOut;
    CaptureBackend::StreamStart started;
    std::unique_ptr<Frames> whole;
    for (int attempt = 0; attempt < 3 && handedOut != "DmaBuf, modifier 0"; ++attempt) {
        whole = std::make_unique<Frames>();
        started = backend->startCapture({}, configuration(640, 360), whole->output);
        ASSERT_TRUE(started.stream) << started.error.toStdString();
        EXPECT_TRUE(whole->waitFor([](const QImage& i) {
            return near(i, 100, 180, red) && near(i, 400, 180, blue) && near(i, 520, 80, green);
        })) << (whole->count() ? "last frame differs" : "no frame came");
        handedOut = desktop.control(QStringLiteral("HandedOut")).toString().toStdString();
        started.stream->stop();
    }
    EXPECT_EQ(handedOut, "DmaBuf, modifier 0");

    Frames region;
    StreamConfiguration cropped = configuration(160, 160);
    cropped.sourceRect = QRectF(440, 0, 160, 160);
    started = backend->startCapture({}, cropped, region.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(region.waitFor([](const QImage& i) {
        return i.size() == QSize(160, 160) && near(i, 10, 10, blue) && near(i, 80, 80, green)
            && near(i, 150, 150, blue);
    })) << region.count()
        << " frames";
    EXPECT_TRUE(whole->stops.lock()->isEmpty() && region.stops.lock()->isEmpty());
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, CaptureWaylandDmaBuf, ::testing::Values("BGRx", "RGBx"),
    [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

// A desktop that can only draw the cursor in or leave it out: shown, the stream asks for it drawn
// in; hidden, for it left out; and switching costs a new session, restored without asking.
class CaptureWaylandNoCursorMetadata : public CaptureWayland {
protected:
    PortalDesktop::Options desktopOptions() const override
    {
        return { .size = QSize(640, 360), .format = QStringLiteral("BGRx"), .cursorModes = 1 | 2 };
    }
};

TEST_F(CaptureWaylandNoCursorMetadata, ShownAsksForEmbeddedHiddenForHiddenAndSwitchingStartsASession)
{
    fill(QRect(0, 0, 640, 360), blue);
    desktop.control(QStringLiteral("SetCursor"), { 200, 100, 0, 0, 16, 16, red.name() });
    Frames shown;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), shown.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_EQ(desktop.control(QStringLiteral("CursorMode")).toUInt(), 2u);
    EXPECT_TRUE(shown.waitFor([](const QImage& i) { return near(i, 204, 104, red) && near(i, 212, 104, blue); }))
        << shown.count() << " frames";
    started.stream->stop();

    Frames hidden;
    StreamConfiguration noCursor = configuration(640, 360);
    noCursor.showsCursor = false;
    started = backend->startCapture({}, noCursor, hidden.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_EQ(desktop.control(QStringLiteral("CursorMode")).toUInt(), 1u);
    EXPECT_TRUE(hidden.waitFor([](const QImage& i) { return near(i, 204, 104, blue); })) << hidden.count() << " frames";
    EXPECT_EQ(desktop.control(QStringLiteral("ScreenCastSessionsMade")).toUInt(), 2u);
    EXPECT_EQ(chooserShown(), 1u);
    started.stream->stop();
}

// A desktop whose DMA-BUFs cannot be mapped (some drivers' buffers live where the processor cannot
// reach): the stream asks again for shared memory, and the pictures come.
class CaptureWaylandUnmappableDmaBuf : public CaptureWayland {
protected:
    PortalDesktop::Options desktopOptions() const override
    {
        return { .size = QSize(640, 360), .format = QStringLiteral("BGRx"), .dmaBuf = true, .dmaBufUnmappable = true };
    }
};

TEST_F(CaptureWaylandUnmappableDmaBuf, TheStreamFallsBackToSharedMemory)
{
    fill(QRect(0, 0, 640, 360), red);
    Frames frames;
    CaptureBackend::StreamStart started = backend->startCapture({}, configuration(640, 360), frames.output);
    ASSERT_TRUE(started.stream) << started.error.toStdString();
    EXPECT_TRUE(frames.waitFor([](const QImage& i) { return near(i, 100, 100, red); }))
        << (frames.count() ? "last frame differs" : "no frame came");
    EXPECT_EQ(desktop.control(QStringLiteral("HandedOut")).toString().toStdString(), "MemFd");
    started.stream->stop();
}

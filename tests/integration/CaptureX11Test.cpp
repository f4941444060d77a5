#include "CaptureTestSupport.h"
#include "X11TestClient.h"
#include "monitor/ScreenPictures.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/TestDesktop.h"

#include <QRegion>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

// Capture on a private Xvfb: a test client paints known colours, and the frames, lists and grabs
// that come back are checked pixel by pixel.
using namespace CaptureTestSupport;

namespace {

const QColor red(255, 0, 0), blue(0, 0, 255), green(0, 255, 0), white(255, 255, 255), black(0, 0, 0);
const QColor yellow(255, 255, 0), magenta(255, 0, 255), cyan(0, 255, 255), navy(0, 0, 128), grey(128, 128, 128);

// The scene: left half red, right half blue, a green square and a white bar.
xcb_window_t paintScene(X11TestClient& client)
{
    const xcb_window_t w
        = client.create({ .rect = QRect(0, 0, 640, 360), .wmClass = "Scene", .title = QStringLiteral("Scene") });
    client.fill(w, QRect(0, 0, 320, 360), red);
    client.fill(w, QRect(320, 0, 320, 360), blue);
    client.fill(w, QRect(480, 40, 80, 80), green);
    client.fill(w, QRect(40, 200, 160, 40), white);
    return w;
}

// A window over the whole 640x360 screen in one colour.
xcb_window_t fillScreen(X11TestClient& client, const char* name, const QColor& colour)
{
    const xcb_window_t w
        = client.create({ .rect = QRect(0, 0, 640, 360), .wmClass = name, .title = QString::fromLatin1(name) });
    client.fill(w, QRect(0, 0, 640, 360), colour);
    return w;
}

struct Desktop {
    TestDesktop desktop;
    QString error;
    explicit Desktop(bool windowManager = false)
    {
        error = desktop.start({ .width = 640, .height = 360, .audio = false, .windowManager = windowManager });
    }
};

// A square at (100, 100) of window `w` flipping between red and blue as fast as a second client
// can paint it, from another thread; green once it is stopped (destroyed).
class BusySquare {
public:
    explicit BusySquare(xcb_window_t w)
        : painter([this, w] {
            X11TestClient other;
            for (int i = 0; painting; ++i)
                other.fill(w, QRect(100, 100, 50, 50), i % 2 ? red : blue);
            other.fill(w, QRect(100, 100, 50, 50), green);
        })
    {
    }
    ~BusySquare()
    {
        painting = false;
        painter.join();
    }

private:
    std::atomic<bool> painting = true;
    std::thread painter;
};

std::vector<QString> appNames(const CaptureEngine& engine)
{
    std::vector<QString> names;
    for (const CaptureWindow& w : engine.availableWindows())
        names.push_back(w.owningApplication->applicationName);
    return names;
}

} // namespace

TEST(CaptureX11, DisplayAndRegionFramesHoldThePaintedPixelsAtTheRightPlaceAndScale)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    ASSERT_TRUE(client.isConnected());
    paintScene(client);

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    ASSERT_EQ(engine.availableDisplays().size(), 1u);
    EXPECT_EQ(engine.availableDisplays()[0].frame, QRect(0, 0, 640, 360));
    ASSERT_TRUE(engine.selectedSource());
    const CaptureDisplay display = engine.availableDisplays()[0];

    // The whole display at half size.
    const int64_t before = monotonicNanoseconds();
    engine.startStream(320, 180, 30, false, false, false);
    ASSERT_TRUE(engine.isStreaming()) << engine.errorMessage().value_or(QString()).toStdString();
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));
    QImage image = log.last();
    ASSERT_EQ(image.size(), QSize(320, 180));
    EXPECT_EQ(image.format(), QImage::Format_RGB32);
    EXPECT_COLOUR(image, 10, 170, red);
    EXPECT_COLOUR(image, 310, 170, blue);
    EXPECT_COLOUR(image, 260, 40, green);
    EXPECT_COLOUR(image, 232, 40, blue); // just left of the square
    EXPECT_COLOUR(image, 60, 110, white);
    // Stamped on the monotonic clock, at the time of the grab.
    EXPECT_GE(log.frames[0].pts.value, before);
    EXPECT_LE(log.frames[0].pts.value, monotonicNanoseconds());
    EXPECT_EQ(log.frames[0].pts.timescale, 1'000'000'000);
    // The preview is the frame itself at this size.
    EXPECT_EQ(engine.latestPreview().size(), QSize(320, 180));

    // Into a square: the aspect is kept, with black bars above and below.
    size_t seen = log.count();
    engine.startStream(320, 320, 30, false, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > seen; }, 3000));
    image = log.last();
    ASSERT_EQ(image.size(), QSize(320, 320));
    EXPECT_COLOUR(image, 160, 30, black);
    EXPECT_COLOUR(image, 160, 300, black);
    EXPECT_COLOUR(image, 260, 70 + 40, green);
    EXPECT_COLOUR(image, 60, 70 + 110, white);

    // A region, twice enlarged: its rectangle, nothing else.
    engine.setSelectedSource(CaptureSource::region(display, QRectF(400, 20, 200, 120), 200, 120));
    seen = log.count();
    engine.startStream(400, 240, 30, false, false, false);
    ASSERT_TRUE(engine.isStreaming());
    ASSERT_TRUE(spinUntil([&] { return log.count() > seen; }, 3000));
    image = log.last();
    ASSERT_EQ(image.size(), QSize(400, 240));
    EXPECT_COLOUR(image, 240, 120, green); // the square lies at 80..160, 20..100 of the region
    EXPECT_COLOUR(image, 150, 120, blue);
    EXPECT_COLOUR(image, 330, 120, blue);
    EXPECT_COLOUR(image, 240, 30, blue);
    EXPECT_COLOUR(image, 240, 210, blue);
    engine.stopStream();
    EXPECT_FALSE(engine.isStreaming());
}

TEST(CaptureX11, DisplaysComeFromRandRMonitorsInTheServersOrder)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    paintScene(client);
    // Two more monitors side by side, listed before the screen's own (which cannot be removed).
    for (const QString& monitor :
        { QStringLiteral("right 320/85x360/95+320+0"), QStringLiteral("left 320/85x360/95+0+0") })
        ASSERT_EQ(d.desktop.run(QStringLiteral("xrandr"),
                      { QStringLiteral("--setmonitor"), monitor.section(QLatin1Char(' '), 0, 0),
                          monitor.section(QLatin1Char(' '), 1, 1), QStringLiteral("none") }),
            0);
    QString out;
    ASSERT_EQ(d.desktop.run(QStringLiteral("xrandr"), { QStringLiteral("--listmonitors") }, &out), 0);
    QStringList serverOrder;
    static const QRegularExpression name(QStringLiteral("^\\s*\\d+: [+*]*(\\S+)"));
    for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts).mid(1))
        serverOrder << name.match(line).captured(1);
    ASSERT_EQ(serverOrder.size(), 3) << out.toStdString();

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    QStringList ours;
    for (const CaptureDisplay& display : engine.availableDisplays())
        ours << display.name;
    EXPECT_EQ(ours, serverOrder);
    EXPECT_EQ(engine.selectedSource()->capturedDisplay().name, serverOrder.front());

    // The right-hand display shows the right half of the scene only.
    for (const CaptureDisplay& display : engine.availableDisplays())
        if (display.name == QStringLiteral("right")) engine.setSelectedSource(CaptureSource::display(display));
    EXPECT_EQ(engine.selectedSource()->capturedDisplay().frame, QRect(320, 0, 320, 360));
    engine.startStream(320, 360, 30, false, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));
    EXPECT_COLOUR(log.last(), 10, 300, blue);
    EXPECT_COLOUR(log.last(), 200, 80, green);
}

TEST(CaptureX11, AScreenThatChangesSizeGoesOnBeingCaptured)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t scene = paintScene(client);
    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    engine.startStream(640, 360, 30, false, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));

    // Made smaller than its monitor (xrandr turns the monitor off and says it failed, but the
    // screen is 480x270 now): the rest of the screen, fitted into the same output, with what
    // is painted afterwards.
    d.desktop.run(QStringLiteral("xrandr"), { QStringLiteral("--fb"), QStringLiteral("480x270") });
    size_t seen = log.count();
    // The server's new framebuffer holds nothing of what was painted before: all is painted again.
    client.fill(scene, QRect(0, 0, 320, 360), yellow);
    client.fill(scene, QRect(320, 0, 320, 360), blue);
    ASSERT_TRUE(log.waitFor(
        seen,
        [](const QImage& image) {
            return image.size() == QSize(640, 360) && near(image, 100, 180, yellow) && near(image, 600, 180, blue);
        },
        5000))
        << "last frame, " << log.last().width() << "x" << log.last().height()
        << ", at 100,180: " << describe(log.last(), 100, 180) << ", at 600,180: " << describe(log.last(), 600, 180);

    // Back to its size: the whole scene again.
    d.desktop.run(QStringLiteral("xrandr"), { QStringLiteral("--fb"), QStringLiteral("640x360") });
    seen = log.count();
    client.fill(scene, QRect(0, 0, 320, 360), yellow);
    client.fill(scene, QRect(320, 0, 320, 360), blue);
    client.fill(scene, QRect(480, 40, 80, 80), magenta);
    EXPECT_TRUE(log.waitFor(
        seen, [](const QImage& image) { return near(image, 520, 80, magenta) && near(image, 100, 180, yellow); }, 5000))
        << "last frame at 520,80: " << describe(log.last(), 520, 80);
    EXPECT_TRUE(engine.isStreaming());
}

TEST(CaptureX11, WindowCapturedByItselfWhileCoveredAndFollowed)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t painter
        = client.create({ .rect = QRect(100, 60, 240, 160), .wmClass = "Painter", .title = QStringLiteral("Canvas") });
    client.fill(painter, QRect(0, 0, 240, 160), yellow);

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    ASSERT_EQ(engine.availableWindows().size(), 1u);
    const CaptureWindow listed = engine.availableWindows()[0];
    EXPECT_EQ(listed.windowID, painter);
    EXPECT_EQ(listed.frame, QRectF(100, 60, 240, 160));
    engine.setSelectedSource(CaptureSource::window(listed));
    engine.startStream(240, 160, 30, false, false, false);
    ASSERT_TRUE(engine.isStreaming()) << engine.errorMessage().value_or(QString()).toStdString();
    // Asked to paint again on redirection; this client doesn't answer, so it paints once more itself.
    client.fill(painter, QRect(0, 0, 240, 160), yellow);
    ASSERT_TRUE(log.waitFor(0, [](const QImage& i) { return near(i, 120, 80, yellow); }));

    // Another window covers it entirely; what the window paints meanwhile is what the stream shows.
    const xcb_window_t cover = client.create({ .rect = QRect(60, 20, 340, 240),
        .wmClass = "Cover",
        .title = QStringLiteral("Cover"),
        .overrideRedirect = true,
        .background = magenta });
    client.fill(cover, QRect(0, 0, 340, 240), magenta);
    size_t seen = log.count();
    client.fill(painter, QRect(0, 0, 240, 160), cyan);
    client.fill(painter, QRect(120, 0, 120, 80), navy);
    ASSERT_TRUE(log.waitFor(seen, [](const QImage& i) { return near(i, 180, 40, navy) && near(i, 60, 120, cyan); }))
        << describe(log.last(), 180, 40);
    QImage image = log.last();
    for (const QPoint p : { QPoint(2, 2), QPoint(237, 2), QPoint(2, 157), QPoint(237, 157), QPoint(120, 80) })
        EXPECT_FALSE(near(image, p.x(), p.y(), magenta)) << p.x() << "," << p.y();

    // Moved and twice as wide: the stream follows, fitted into the same output with bars.
    seen = log.count();
    client.configure(painter, QRect(20, 100, 480, 160));
    client.fill(painter, QRect(0, 0, 240, 160), green);
    client.fill(painter, QRect(240, 0, 240, 160), white);
    ASSERT_TRUE(log.waitFor(seen, [](const QImage& i) { return near(i, 60, 80, green) && near(i, 180, 80, white); }))
        << describe(log.last(), 60, 80);
    image = log.last();
    EXPECT_EQ(image.size(), QSize(240, 160));
    EXPECT_COLOUR(image, 120, 20, black);
    EXPECT_COLOUR(image, 120, 140, black);
    ASSERT_TRUE(engine.liveFrame(painter));
    EXPECT_EQ(*engine.liveFrame(painter), QRectF(20, 100, 480, 160));
    EXPECT_EQ(engine.selectedWindowScope()->frame, QRectF(20, 100, 480, 160));

    // The window closes: the stream ends by itself, the engine lets it go and says why.
    QStringList stops;
    QObject::connect(&engine, &CaptureEngine::streamStopped, [&stops](const QString& why) { stops << why; });
    client.destroy(painter);
    ASSERT_TRUE(spinUntil([&] { return !engine.isStreaming(); }, 3000));
    EXPECT_EQ(stops, QStringList { QStringLiteral("the window was closed") });
    seen = log.count();
    client.fill(cover, QRect(0, 0, 340, 240), white);
    EXPECT_FALSE(spinUntil([&] { return log.count() > seen; }, 300));
    EXPECT_FALSE(engine.liveFrame(painter));
}

TEST(CaptureX11, StillScreenDeliversNothingUntilSomethingChanges)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t w = fillScreen(client, "Still", grey);
    ASSERT_EQ(d.desktop.run(QStringLiteral("xdotool"),
                  { QStringLiteral("mousemove"), QStringLiteral("600"), QStringLiteral("340") }),
        0);

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    const CaptureDisplay display = engine.availableDisplays().at(0);
    engine.startStream(640, 360, 30, true, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));
    // Let a frame that raced with the start come in, then watch two seconds of nothing.
    spinUntil([] { return false; }, 200);
    size_t seen = log.count();
    EXPECT_FALSE(spinUntil([&] { return log.count() > seen; }, 2000))
        << log.count() - seen << " frames of a still screen";

    client.fill(w, QRect(100, 100, 50, 50), red);
    ASSERT_TRUE(log.waitFor(
        seen, [](const QImage& i) { return near(i, 125, 125, red); }, 1000));

    // The pointer moves over the grey: that is a change when the cursor is shown, and it is drawn in.
    // xdotool warps it, which makes no motion event: on a still screen that is seen within the
    // pointer's periodic check (2 s).
    seen = log.count();
    ASSERT_EQ(d.desktop.run(QStringLiteral("xdotool"),
                  { QStringLiteral("mousemove"), QStringLiteral("400"), QStringLiteral("200") }),
        0);
    ASSERT_TRUE(spinUntil([&] { return log.count() > seen; }, 3500));
    bool cursorDrawn = false;
    for (int y = 185; y < 215 && !cursorDrawn; ++y)
        for (int x = 385; x < 415 && !cursorDrawn; ++x)
            cursorDrawn = !near(log.last(), x, y, grey);
    EXPECT_TRUE(cursorDrawn);

    // A region only cares for its own rectangle; with the cursor hidden, moving it is no change.
    engine.setSelectedSource(CaptureSource::region(display, QRectF(0, 0, 200, 200), 200, 200));
    engine.startStream(200, 200, 30, false, false, false);
    seen = log.count();
    ASSERT_TRUE(spinUntil([&] { return log.count() > seen; }, 3000));
    spinUntil([] { return false; }, 200);
    seen = log.count();
    client.fill(w, QRect(300, 250, 100, 100), blue);
    ASSERT_EQ(d.desktop.run(QStringLiteral("xdotool"),
                  { QStringLiteral("mousemove"), QStringLiteral("50"), QStringLiteral("50") }),
        0);
    EXPECT_FALSE(spinUntil([&] { return log.count() > seen; }, 500));
    client.fill(w, QRect(150, 150, 20, 20), blue);
    ASSERT_TRUE(log.waitFor(
        seen, [](const QImage& i) { return near(i, 160, 160, blue); }, 1000));
    EXPECT_COLOUR(log.last(), 50, 50, grey); // no cursor drawn
}

// The recorder's own window repainting itself (its preview of this very screen) is no change of
// the screen while "hide Velotape" is on; what another program paints still is, also where its
// window lies over ours, and ours count again when hiding is off.
TEST(CaptureX11, OurOwnWindowsRepaintingThemselvesMakeNoFrames)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t back = fillScreen(client, "Back", grey);
    const xcb_window_t ours = client.create({ .rect = QRect(100, 100, 200, 120), .wmClass = "Velotape" });

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    engine.setOwnWindows({ uint32_t(ours) });
    auto framesWhile = [&](auto paint) {
        spinFor(200); // what an earlier change caused has come
        const size_t before = log.count();
        for (int i = 0; i < 10; ++i) {
            paint(i);
            spinFor(60);
        }
        spinFor(300);
        return log.count() - before;
    };
    auto repaintOurs = [&](int i) { client.fill(ours, QRect(10, 10, 100, 60), i % 2 ? red : blue); };

    engine.startStream(640, 360, 30, false, true, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));
    EXPECT_EQ(framesWhile(repaintOurs), 0u);
    EXPECT_GT(framesWhile([&](int i) { client.fill(back, QRect(400, 250, 40, 40), i % 2 ? red : blue); }), 4u);
    // Ours shows what it painted last in the next frame something else causes.
    client.fill(back, QRect(500, 300, 20, 20), green);
    ASSERT_TRUE(log.waitFor(
        0, [](const QImage& i) { return near(i, 510, 310, green); }, 1000));
    EXPECT_TRUE(near(log.last(), 150, 150, red));

    // Another program's window over part of ours: damage there may be its, so it counts.
    const xcb_window_t over = client.create({ .rect = QRect(250, 150, 100, 100), .wmClass = "Over" });
    EXPECT_GT(framesWhile([&](int i) { client.fill(over, QRect(0, 0, 20, 20), i % 2 ? red : blue); }), 4u);
    client.destroy(over);

    const size_t before = log.count();
    engine.startStream(640, 360, 30, false, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > before; }, 3000));
    EXPECT_GT(framesWhile(repaintOurs), 4u);
}

// A screen that changes far faster than the frame rate gives frames at the rate, not one a change;
// and when it stops changing, its last picture still comes. At 10 fps the answer to each grab is
// read at the next frame's look, at 4 fps at once: both ways are run.
TEST(CaptureX11, FramesKeepToTheRateAndTheLastChangeStillArrives)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t w = fillScreen(client, "Busy", grey);

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    for (const int fps : { 10, 4 }) {
        SCOPED_TRACE(fps);
        const size_t before = log.count();
        engine.startStream(320, 180, fps, false, false, false);
        ASSERT_TRUE(spinUntil([&] { return log.count() > before; }, 3000));

        std::optional<BusySquare> painter(w);
        spinFor(300);
        const size_t first = log.count();
        spinFor(2000);
        const size_t last = log.count();
        painter.reset();

        const double perSecond = double(last - first) / 2.0;
        EXPECT_LE(perSecond, fps + 1.0);
        EXPECT_GE(perSecond, fps / 2.0);
        const int64_t interval = 1'000'000'000 / fps;
        int tooClose = 0;
        for (size_t i = std::max<size_t>(first, 1); i < last; ++i)
            tooClose += log.frames[i].pts.value - log.frames[i - 1].pts.value < interval / 2;
        EXPECT_EQ(tooClose, 0) << "frames less than half an interval after the one before";
        EXPECT_TRUE(log.waitFor(
            last, [](const QImage& i) { return near(i, 62, 62, green); }, 2000));
    }
    engine.stopStream();
}

TEST(CaptureX11, EachFrameSaysWhereItChangedSinceTheOneBeforeCursorIncluded)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t desk
        = client.create({ .rect = QRect(0, 0, 640, 360), .wmClass = "Desk", .title = QStringLiteral("Desk") });
    // Detail everywhere, so that any pixel left out of a frame's changes would show as a difference.
    QImage pattern(640, 360, QImage::Format_RGB32);
    for (int y = 0; y < 360; ++y)
        for (int x = 0; x < 640; ++x)
            pattern.setPixel(x, y, qRgb((x * 7 + y * 3) & 255, (x ^ y) & 255, (y * 5) & 255));
    client.draw(desk, QPoint(0, 0), pattern);
    const xcb_window_t mover
        = client.create({ .rect = QRect(0, 0, 80, 60), .wmClass = "Mover", .title = QStringLiteral("Mover") });
    client.fill(mover, QRect(0, 0, 80, 60), white);
    client.fill(mover, QRect(10, 10, 20, 20), red);
    client.sync();

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    FrameLog log(engine);
    refresh(engine);
    engine.startStream(640, 360, 30, true, false, false);
    ASSERT_TRUE(spinUntil([&] { return log.count() > 0; }, 3000));
    // The window moves, and the pointer with it now and then (the cursor is painted in).
    for (int i = 0; i < 40; ++i) {
        client.configure(mover, QRect(20 + i * 13 % 500, 30 + i * 7 % 280, 80, 60));
        if (i % 3 == 0) client.warpPointer(QPoint(50 + i * 11, 40 + i * 5));
        spinFor(40);
    }
    spinFor(300);
    engine.stopStream();

    int checked = 0, small = 0;
    for (size_t i = 1; i < log.frames.size(); ++i) {
        const VideoFrame &before = log.frames[i - 1], &now = log.frames[i];
        // Only frames that follow the one before them in the stream say what changed since it.
        if (now.changes.sequence != before.changes.sequence + 1 || !now.changes.known) continue;
        QRegion said;
        for (const QRect& r : now.changes.rects)
            said += r;
        int outside = 0;
        for (int y = 0; y < 360; ++y)
            for (int x = 0; x < 640; ++x)
                outside += before.image.pixel(x, y) != now.image.pixel(x, y) && !said.contains(QPoint(x, y));
        EXPECT_EQ(outside, 0) << "frame " << i << " changed pixels it did not name";
        ++checked;
        qint64 area = 0;
        for (const QRect& r : said)
            area += qint64(r.width()) * r.height();
        small += area < 640 * 360 / 4;
    }
    // Most frames are told as the few rectangles the window left and entered, not the screen.
    EXPECT_GE(checked, 20);
    EXPECT_GE(small, checked * 3 / 4);
}

TEST(CaptureX11, AConsumerHoldingEveryPictureHoldsTheGrabsBackAndTheLatestChangeStillComes)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t w = fillScreen(client, "Busy", grey);

    // At the screen's own size a frame is a view on the grabber's shared memory: a consumer that
    // keeps every frame (an encoder far behind) keeps every picture.
    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    std::vector<VideoFrame> held;
    bool sawGreen = false;
    engine.frameSink = [&](const VideoFrame& frame) {
        held.push_back(frame);
        sawGreen = sawGreen || near(frame.image, 120, 120, green);
    };
    refresh(engine);
    engine.startStream(640, 360, 30, false, false, false);
    std::optional<BusySquare> painter(w);
    spinFor(1500);
    // No more pictures out at once than the stream's queue is deep, however long it is held.
    EXPECT_GE(held.size(), 2u);
    EXPECT_LE(held.size(), 8u);
    painter.reset();
    spinFor(300);
    held.clear();
    EXPECT_TRUE(spinUntil([&] { return sawGreen; }, 3000))
        << "the change made while every picture was held never arrived";
    engine.stopStream();
}

namespace {

// Windows that test every rule of the list, made in an order that is not the sorted one.
struct ListedScene {
    xcb_window_t zeta, betaSmall, betaLarge, alpha;
};

ListedScene makeListScene(X11TestClient& client)
{
    ListedScene s;
    s.zeta
        = client.create({ .rect = QRect(10, 10, 300, 200), .wmClass = "Zeta", .title = QStringLiteral("Zeta main") });
    client.create({ .rect = QRect(10, 10, 149, 300), .wmClass = "Narrow", .title = QStringLiteral("Too narrow") });
    client.create({ .rect = QRect(10, 10, 400, 300), .wmClass = "Untitled", .title = QString() });
    s.betaSmall
        = client.create({ .rect = QRect(10, 10, 200, 150), .wmClass = "Beta", .title = QStringLiteral("Beta small") });
    s.betaLarge
        = client.create({ .rect = QRect(20, 30, 350, 250), .wmClass = "Beta", .title = QStringLiteral("Beta large") });
    s.alpha = client.create({ .rect = QRect(30, 40, 250, 200), .wmClass = "Alpha", .title = QStringLiteral("Alpha") });
    client.create({ .rect = QRect(0, 260, 640, 100),
        .wmClass = "Panel",
        .title = QStringLiteral("Dock"),
        .windowType = "_NET_WM_WINDOW_TYPE_DOCK" });
    client.create({ .rect = QRect(50, 50, 300, 300),
        .wmClass = "Popup",
        .title = QStringLiteral("Menu"),
        .overrideRedirect = true });
    client.create(
        { .rect = QRect(50, 50, 300, 300), .wmClass = "Xfce4-panel", .title = QStringLiteral("Shell panel") });
    return s;
}

} // namespace

TEST(CaptureX11, WindowListWithoutAWindowManager)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const ListedScene scene = makeListScene(client);

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    refresh(engine);
    EXPECT_EQ(appNames(engine),
        (std::vector<QString> { QStringLiteral("Alpha"), QStringLiteral("Beta"), QStringLiteral("Zeta") }));
    ASSERT_EQ(engine.availableWindows().size(), 3u);
    EXPECT_EQ(engine.availableWindows()[0].windowID, scene.alpha);
    EXPECT_EQ(engine.availableWindows()[1].windowID, scene.betaLarge);
    EXPECT_EQ(engine.availableWindows()[1].frame, QRectF(20, 30, 350, 250));
    EXPECT_EQ(engine.availableWindows()[1].title, QStringLiteral("Beta large"));
    EXPECT_EQ(engine.availableWindows()[1].owningApplication->bundleIdentifier, QStringLiteral("Beta"));
    EXPECT_EQ(engine.availableWindows()[2].windowID, scene.zeta);
    EXPECT_FALSE(engine.errorMessage());
    EXPECT_FALSE(engine.myApplication()); // X11 cannot exclude applications
}

TEST(CaptureX11, WindowListFromTheWindowManagersClientList)
{
    Desktop d(true);
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const ListedScene scene = makeListScene(client);
    ASSERT_TRUE(spinUntil([&] { return client.listedByWindowManager(scene.alpha); }, 3000));

    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    refresh(engine);
    EXPECT_EQ(appNames(engine),
        (std::vector<QString> { QStringLiteral("Alpha"), QStringLiteral("Beta"), QStringLiteral("Zeta") }));
    ASSERT_EQ(engine.availableWindows().size(), 3u);
    // The client windows themselves (inside openbox's frames), at their size.
    EXPECT_EQ(engine.availableWindows()[1].windowID, scene.betaLarge);
    EXPECT_EQ(engine.availableWindows()[1].frame.size(), QSizeF(350, 250));

    // Minimised windows are not on screen.
    ASSERT_EQ(d.desktop.run(
                  QStringLiteral("xdotool"), { QStringLiteral("windowminimize"), QString::number(scene.betaLarge) }),
        0);
    ASSERT_TRUE(spinUntil(
        [&] {
            refresh(engine);
            return engine.availableWindows().size() == 3 && engine.availableWindows()[1].windowID == scene.betaSmall;
        },
        3000));
}

TEST(CaptureX11, SingleGrabsOfTheScreenAndOfOneWindow)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    paintScene(client);
    const xcb_window_t painter
        = client.create({ .rect = QRect(100, 60, 120, 80), .wmClass = "Painter", .title = QStringLiteral("Canvas") });
    client.fill(painter, QRect(0, 0, 120, 80), yellow);
    X11CaptureBackend backend;

    // A rectangle reaching past the right edge: black where there is no screen.
    std::optional<QImage> shot = backend.grabRect(QRectF(600, 300, 80, 40));
    ASSERT_TRUE(shot);
    ASSERT_EQ(shot->size(), QSize(80, 40));
    EXPECT_COLOUR(*shot, 20, 20, blue);
    EXPECT_COLOUR(*shot, 60, 20, black);
    shot = backend.grabRect(QRectF(470, 30, 20, 20));
    EXPECT_COLOUR(*shot, 15, 15, green);
    EXPECT_COLOUR(*shot, 5, 5, blue);

    ASSERT_TRUE(backend.windowFrame(painter));
    EXPECT_EQ(*backend.windowFrame(painter), QRectF(100, 60, 120, 80));
    shot = backend.grabWindowRect(painter, std::nullopt);
    ASSERT_TRUE(shot);
    EXPECT_EQ(shot->size(), QSize(120, 80));
    EXPECT_COLOUR(*shot, 60, 40, yellow);

    // Covered, and painted while covered: a window grab sees the window, a screen grab the cover.
    const xcb_window_t cover = client.create({ .rect = QRect(80, 40, 200, 140),
        .wmClass = "Cover",
        .title = QStringLiteral("Cover"),
        .overrideRedirect = true });
    client.fill(cover, QRect(0, 0, 200, 140), magenta);
    client.fill(painter, QRect(0, 0, 60, 80), cyan);
    shot = backend.grabWindowRect(painter, QRectF(110, 70, 100, 40)); // a part, in global coordinates
    ASSERT_TRUE(shot);
    EXPECT_EQ(shot->size(), QSize(100, 40));
    EXPECT_COLOUR(*shot, 10, 20, cyan);
    EXPECT_COLOUR(*shot, 90, 20, yellow);
    EXPECT_COLOUR(*backend.grabRect(QRectF(110, 70, 100, 40)), 10, 20, magenta);

    client.destroy(painter);
    EXPECT_FALSE(backend.windowFrame(painter));
    EXPECT_FALSE(backend.grabWindowRect(painter, std::nullopt));
    EXPECT_TRUE(backend.grabRect(QRectF(0, 0, 10, 10))); // the shared connection survived the errors
}

TEST(CaptureX11, PeeksSeeWhatGrabsSee)
{
    Desktop d;
    ASSERT_EQ(d.error, QString());
    X11TestClient client;
    const xcb_window_t chart
        = client.create({ .rect = QRect(0, 0, 640, 360), .wmClass = "Chart", .title = QStringLiteral("Chart") });
    client.draw(chart, QPoint(0, 0), ScreenPictures::tradingScreen(QSize(640, 360)));
    X11CaptureBackend backend;
    // A peek's fourth byte is undefined; the colours must be the grab's.
    const auto sameColours = [](const QImage& peek, const QImage& grab) {
        if (peek.size() != grab.size()) return false;
        for (int y = 0; y < grab.height(); ++y)
            for (int x = 0; x < grab.width(); ++x)
                if ((peek.pixel(x, y) & 0xffffffu) != (grab.pixel(x, y) & 0xffffffu)) return false;
        return true;
    };

    // Inside the screen, the whole screen, past its edge (black there), at fractional points.
    for (const QRectF& r : { QRectF(30, 20, 500, 300), QRectF(0, 0, 640, 360), QRectF(600, 300, 80, 40),
             QRectF(10.5, 10.25, 100.5, 50) }) {
        const std::optional<QImage> peek = backend.peekRect(r);
        const std::optional<QImage> grab = backend.grabRect(r);
        ASSERT_TRUE(peek && grab);
        EXPECT_TRUE(sameColours(*peek, *grab)) << r.x() << "," << r.y() << " " << r.width() << "x" << r.height();
    }

    // A peek still held keeps its pixels while the next one reads the changed screen.
    const std::optional<QImage> before = backend.peekRect(QRectF(100, 100, 40, 40));
    client.fill(chart, QRect(100, 100, 40, 40), magenta);
    const std::optional<QImage> after = backend.peekRect(QRectF(100, 100, 40, 40));
    ASSERT_TRUE(before && after);
    EXPECT_NE(before->pixel(20, 20) & 0xffffffu, magenta.rgb() & 0xffffffu);
    EXPECT_COLOUR(*after, 20, 20, magenta);

    // A covered window: its own pixels, as a window grab sees them; none once it is gone. The
    // first grab of a window redirects it, and the test client doesn't repaint on request.
    ASSERT_TRUE(backend.peekWindowRect(chart, QRectF(0, 0, 10, 10)));
    client.draw(chart, QPoint(0, 0), ScreenPictures::tradingScreen(QSize(640, 360)));
    client.fill(chart, QRect(100, 100, 40, 40), magenta);
    const xcb_window_t cover = client.create({ .rect = QRect(50, 50, 300, 200),
        .wmClass = "Cover",
        .title = QStringLiteral("Cover"),
        .overrideRedirect = true });
    client.fill(cover, QRect(0, 0, 300, 200), cyan);
    const std::optional<QImage> windowPeek = backend.peekWindowRect(chart, QRectF(40, 40, 400, 250));
    const std::optional<QImage> windowGrab = backend.grabWindowRect(chart, QRectF(40, 40, 400, 250));
    ASSERT_TRUE(windowPeek && windowGrab);
    EXPECT_TRUE(sameColours(*windowPeek, *windowGrab));
    EXPECT_COLOUR(*windowPeek, 80, 80, magenta);
    client.destroy(chart);
    EXPECT_FALSE(backend.peekWindowRect(chart, QRectF(40, 40, 400, 250)));
}

TEST(CaptureX11, NoDisplayMeansClearFailuresNotCrashes)
{
    const QByteArray saved = qgetenv("DISPLAY");
    qputenv("DISPLAY", ":4242");
    auto backend = std::make_shared<X11CaptureBackend>();
    EXPECT_FALSE(X11CaptureBackend::probe().isEmpty());
    CaptureEngine engine(backend);
    refresh(engine);
    ASSERT_TRUE(engine.errorMessage());
    EXPECT_TRUE(
        engine.errorMessage()->startsWith(QStringLiteral("Couldn't list capture sources: cannot open display :4242")))
        << engine.errorMessage()->toStdString();
    CaptureDisplay display;
    display.displayID = 1;
    engine.setSelectedSource(CaptureSource::display(display));
    engine.startStream(640, 360, 30, true, false, false);
    EXPECT_FALSE(engine.isStreaming());
    EXPECT_TRUE(engine.errorMessage()->startsWith(QStringLiteral("Capture failed: cannot open display :4242")));
    EXPECT_FALSE(backend->grabRect(QRectF(0, 0, 10, 10)));
    if (saved.isEmpty())
        qunsetenv("DISPLAY");
    else
        qputenv("DISPLAY", saved);
}

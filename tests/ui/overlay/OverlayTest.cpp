#include "DesktopTestMain.h"
#include "X11TestClient.h"
#include "app/session/BackendAreaGrabber.h"
#include "monitor/AreaMonitor.h"
#include "monitor/ArmedFrameDrawing.h"
#include "platform/x11/AreaPickerOverlay.h"
#include "platform/x11/ArmedAreaOverlay.h"
#include "platform/x11/X11CaptureBackend.h"
#include "platform/x11/X11Compositor.h"
#include "platform/x11/XcbConnection.h"
#include "support/TestDesktop.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>
#include <xcb/xfixes.h>

namespace {

// Runs xdotool, which moves the pointer and presses keys through XTest, as a user's hand would.
void xdotool(const QStringList& args)
{
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"), args), 0) << args.join(u' ').toStdString();
}

bool allExposed(const std::vector<QWindow*>& windows)
{
    for (QWindow* window : windows)
        if (!QTest::qWaitForWindowExposed(window, 3000)) return false;
    return !windows.empty();
}

// A window's shape of `kind` (where it is drawn, or where it takes input), as the server has it.
QRegion shapeOf(const QWindow* window, xcb_shape_kind_t kind)
{
    xcb_connection_t* c = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    const xcb_xfixes_region_t region = xcb_generate_id(c);
    xcb_xfixes_create_region_from_window(c, region, xcb_window_t(window->winId()), kind);
    const XcbReply<xcb_xfixes_fetch_region_reply_t> reply(
        xcb_xfixes_fetch_region_reply(c, xcb_xfixes_fetch_region(c, region), nullptr));
    xcb_xfixes_destroy_region(c, region);
    QRegion shape;
    if (!reply) return shape;
    const xcb_rectangle_t* rects = xcb_xfixes_fetch_region_rectangles(reply.get());
    for (int i = 0; i < xcb_xfixes_fetch_region_rectangles_length(reply.get()); ++i)
        shape += QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height);
    return shape;
}

// Where a window of ours stands, in the display's pixels (Qt may scale its own).
QRect nativeGeometry(const QWindow* window)
{
    xcb_connection_t* c = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    const XcbReply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(c, xcb_get_geometry(c, xcb_window_t(window->winId())), nullptr));
    return geometry ? QRect(geometry->x, geometry->y, geometry->width, geometry->height) : QRect();
}

// Two monitors side by side on the 1400x900 screen: the left one is the main one.
void splitIntoTwoMonitors()
{
    for (const QString& monitor :
        { QStringLiteral("left 700/185x900/240+0+0"), QStringLiteral("right 700/185x900/240+700+0") })
        ASSERT_EQ(testDesktop()->run(QStringLiteral("xrandr"),
                      { QStringLiteral("--setmonitor"), monitor.section(u' ', 0, 0), monitor.section(u' ', 1, 1),
                          QStringLiteral("none") }),
            0);
}

struct Pick {
    int calls = 0;
    std::optional<QRectF> rect;
    AreaPicker::Completion completion()
    {
        return [this](std::optional<QRectF> r) {
            ++calls;
            rect = r;
        };
    }
};

} // namespace

TEST(AreaPickerOverlay, DragsOnEitherDisplayGiveGlobalRectanglesAndEscGivesNone)
{
    splitIntoTwoMonitors();
    auto backend = std::make_shared<X11CaptureBackend>();
    AreaPickerOverlay picker(backend);

    // A drag on the second display, right to left and upward.
    Pick drag;
    picker.pick(drag.completion());
    ASSERT_EQ(picker.windows().size(), 2u);
    ASSERT_TRUE(allExposed(picker.windows()));
    EXPECT_EQ(nativeGeometry(picker.windows()[1]), QRect(700, 0, 700, 900));
    xdotool({ QStringLiteral("mousemove"), QStringLiteral("1150"), QStringLiteral("400"), QStringLiteral("mousedown"),
        QStringLiteral("1"), QStringLiteral("mousemove"), QStringLiteral("1100"), QStringLiteral("350"),
        QStringLiteral("mousemove"), QStringLiteral("1000"), QStringLiteral("300") });
    QTest::qWait(300);
    // Mid-drag the screen shows the selection's red outline over a dimmed display.
    const auto shown = backend->grabRect(QRectF(990, 290, 200, 130));
    ASSERT_TRUE(shown);
    const QRgb edge = shown->pixel(10, 60); // on the selection's left edge, x = 1000
    EXPECT_GT(qRed(edge), 180);
    EXPECT_LT(qBlue(edge), 130);
    xdotool({ QStringLiteral("mouseup"), QStringLiteral("1") });
    ASSERT_TRUE(QTest::qWaitFor([&] { return drag.calls > 0; }, 3000));
    EXPECT_EQ(drag.rect, QRectF(1000, 300, 150, 100));
    EXPECT_TRUE(picker.windows().empty());

    // A second pick started during a pick ends the first without a word; Esc ends the second.
    Pick abandoned;
    Pick cancelled;
    picker.pick(abandoned.completion());
    picker.pick(cancelled.completion());
    ASSERT_TRUE(allExposed(picker.windows()));
    QTest::qWait(100); // the keyboard grab follows the first exposure
    xdotool({ QStringLiteral("key"), QStringLiteral("Escape") });
    ASSERT_TRUE(QTest::qWaitFor([&] { return cancelled.calls > 0; }, 3000));
    EXPECT_EQ(cancelled.rect, std::nullopt);

    // A drag from the first display into the second reaches across both.
    Pick across;
    picker.pick(across.completion());
    ASSERT_TRUE(allExposed(picker.windows()));
    xdotool({ QStringLiteral("mousemove"), QStringLiteral("600"), QStringLiteral("100"), QStringLiteral("mousedown"),
        QStringLiteral("1"), QStringLiteral("mousemove"), QStringLiteral("700"), QStringLiteral("150"),
        QStringLiteral("mousemove"), QStringLiteral("800"), QStringLiteral("200"), QStringLiteral("mouseup"),
        QStringLiteral("1") });
    ASSERT_TRUE(QTest::qWaitFor([&] { return across.calls > 0; }, 3000));
    EXPECT_EQ(across.rect, QRectF(600, 100, 200, 100));

    QTest::qWait(200);
    EXPECT_EQ(drag.calls, 1);
    EXPECT_EQ(abandoned.calls, 0);
    EXPECT_EQ(cancelled.calls, 1);
    EXPECT_EQ(across.calls, 1);
}

// A root grab sees our own windows. The frame stands outside the watched rectangle, so a monitor
// armed over a still picture never sees it move, with or without a compositing manager; a change
// inside the area is still seen at once.
TEST(ArmedAreaOverlay, TheMonitorNeverTriggersOnItsOwnFrame)
{
    auto backend = std::make_shared<X11CaptureBackend>();
    X11TestClient client;
    ASSERT_TRUE(client.isConnected());
    const xcb_window_t still = client.create({ .rect = QRect(200, 150, 600, 400),
        .wmClass = "Chart",
        .title = QStringLiteral("chart"),
        .background = QColor(30, 34, 40) });
    client.fill(still, QRect(40, 60, 200, 120), QColor(200, 200, 200));
    client.fill(still, QRect(300, 200, 150, 100), QColor(90, 160, 60));
    client.sync();

    const QRectF watched(260, 230, 420, 260);
    AreaMonitor monitor(std::make_unique<BackendAreaGrabber>(backend));
    monitor.setSensitivity(AreaSensitivity::high);
    monitor.setRect(watched);
    ASSERT_TRUE(monitor.captureReference());
    int starts = 0;
    monitor.onShouldStartRecording = [&](std::chrono::nanoseconds) { ++starts; };
    ASSERT_EQ(monitor.arm(), std::nullopt);

    ArmedAreaOverlay frame(backend);
    const AreaOverlayStyle styles[]
        = { AreaOverlayStyle::outline, AreaOverlayStyle::march, AreaOverlayStyle::wave, AreaOverlayStyle::glass,
              AreaOverlayStyle::bracket, AreaOverlayStyle::tactical, AreaOverlayStyle::pulse, AreaOverlayStyle::frame };
    // Every style for a while, and the frame is really on the screen around the area, and moves.
    const auto runAllStyles = [&] {
        for (AreaOverlayStyle style : styles) {
            frame.show(watched, style);
            ASSERT_TRUE(allExposed(frame.windows()));
            EXPECT_TRUE(frame.isAnimating());
            // It never takes a click, and it covers only its band, so the area and the rest of the
            // screen show through, and a translucent window left without its compositor can't
            // blacken the area.
            for (const QWindow* window : frame.windows()) {
                EXPECT_TRUE(shapeOf(window, XCB_SHAPE_SK_INPUT).isEmpty());
                const QRegion drawn = shapeOf(window, XCB_SHAPE_SK_BOUNDING);
                const QRect placed = nativeGeometry(window);
                const QPoint centre = watched.center().toPoint() - placed.topLeft();
                EXPECT_FALSE(drawn.contains(centre)) << "the window covers the watched area";
                EXPECT_TRUE(drawn.contains(QPoint(5, placed.height() / 2))) << "the band's outer part is cut off";
                // Nothing of the window inside the area, wherever Qt's scaling put it.
                EXPECT_TRUE(drawn.translated(placed.topLeft()).intersected(watched.toAlignedRect()).isEmpty());
            }
            QTest::qWait(600);
            const auto around = backend->grabRect(watched.adjusted(-30, -30, 30, 30));
            ASSERT_TRUE(around);
            int cyan = 0;
            for (int y = 0; y < around->height(); ++y)
                for (int x = 0; x < around->width(); ++x)
                    if (const QRgb p = around->pixel(x, y); qBlue(p) > 150 && qBlue(p) > qRed(p) + 60) ++cyan;
            EXPECT_GT(cyan, 50) << rawValue(style).toStdString();
            QTest::qWait(250);
            EXPECT_NE(backend->grabRect(watched.adjusted(-30, -30, 30, 30)), around)
                << rawValue(style).toStdString() << " stood still on the screen";
        }
    };

    ASSERT_FALSE(X11Compositor::isRunning());
    runAllStyles();
    EXPECT_FALSE(frame.isTranslucent());
    frame.dismiss();

    // A compositing manager that starts or stops while the frame stands: the frame follows it.
    // Where this style paints nothing, the band shows what lies under it, not a translucent
    // window's clear pixels gone black.
    const QPoint bare(int(watched.left()) - ArmedFrameDrawing::gap - 8, int(watched.center().y()));
    const auto shownAt = [&](QPoint p) { return backend->grabRect(QRectF(p, QSizeF(1, 1)))->pixel(0, 0); };
    frame.show(watched, AreaOverlayStyle::frame);
    ASSERT_TRUE(allExposed(frame.windows()));
    QProcess compositor;
    compositor.start(QStringLiteral("xcompmgr"), {});
    if (compositor.waitForStarted(3000)) {
        ASSERT_TRUE(QTest::qWaitFor([&] { return frame.isTranslucent() && allExposed(frame.windows()); }, 3000));
        runAllStyles();
        EXPECT_TRUE(frame.isTranslucent());
        frame.show(watched, AreaOverlayStyle::frame);
        compositor.terminate();
        compositor.waitForFinished(3000);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !frame.isTranslucent() && allExposed(frame.windows()); }, 3000));
        QTest::qWait(300);
        EXPECT_EQ(QColor(shownAt(bare)).name(), QColor(30, 34, 40).name());
    } else {
        ADD_FAILURE() << "xcompmgr did not start: " << compositor.errorString().toStdString();
    }
    EXPECT_EQ(starts, 0) << "the monitor saw its own frame";

    frame.dismiss();
    EXPECT_TRUE(frame.windows().empty());
    EXPECT_FALSE(frame.isAnimating());

    // The monitor was looking all along: a change inside the area starts a recording.
    client.fill(still, QRect(100, 100, 300, 200), QColor(250, 250, 250));
    client.sync();
    EXPECT_TRUE(QTest::qWaitFor([&] { return starts == 1; }, 2000));
    client.destroy(still);
}

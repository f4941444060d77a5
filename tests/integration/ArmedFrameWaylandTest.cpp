#include "monitor/ArmedFrameDrawing.h"
#include "platform/wayland/LayerShellArmedFrame.h"
#include "support/EventLoop.h"
#include "support/HeadlessRun.h"
#include "support/HeadlessSway.h"
#include "support/PortalDesktop.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <sys/prctl.h>
#include <wayland-client.h>

// The armed frame as a layer-shell surface, on a real wlroots compositor (sway, headless, pixman),
// checked on the compositor's own screenshots (grim): the frame's pixels stand around the watched
// rectangle, none inside it and none far from it.

namespace {

const QColor background(0x20, 0x40, 0x60);

int distance(QRgb pixel, const QColor& colour)
{
    return std::abs(qRed(pixel) - colour.red()) + std::abs(qGreen(pixel) - colour.green())
        + std::abs(qBlue(pixel) - colour.blue());
}

// The pixels of `shot` in `rect` that are not the background.
int painted(const QImage& shot, const QRect& rect)
{
    int count = 0;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            if (shot.valid(x, y) && distance(shot.pixel(x, y), background) > 24) ++count;
    return count;
}

// The frame's line runs `gap` outside `watched` on all four sides, and nothing is inside it, where
// the monitor reads.
void expectLineAround(const QImage& shot, const QRect& watched)
{
    const int g = ArmedFrameDrawing::gap;
    EXPECT_GT(painted(shot, QRect(watched.left() - g - 2, watched.center().y() - 5, 5, 10)), 0) << "left";
    EXPECT_GT(painted(shot, QRect(watched.right() + g - 2, watched.center().y() - 5, 5, 10)), 0) << "right";
    EXPECT_GT(painted(shot, QRect(watched.center().x() - 5, watched.top() - g - 2, 10, 5)), 0) << "top";
    EXPECT_GT(painted(shot, QRect(watched.center().x() - 5, watched.bottom() + g - 2, 10, 5)), 0) << "bottom";
    EXPECT_EQ(painted(shot, watched), 0);
}

class ArmedFrameWayland : public ::testing::Test {
protected:
    HeadlessSway sway;
    QByteArray savedRuntime, savedDisplay;

    void SetUp() override
    {
        if (const QString missing = HeadlessSway::missingProgram(); !missing.isEmpty())
            GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
        ASSERT_EQ(sway.start({ .size = QSize(640, 360), .background = background }), QString());
        savedRuntime = qgetenv("XDG_RUNTIME_DIR");
        savedDisplay = qgetenv("WAYLAND_DISPLAY");
        qputenv("XDG_RUNTIME_DIR", sway.runtimeDir().toUtf8());
        qputenv("WAYLAND_DISPLAY", sway.displayName().toUtf8());
    }

    void TearDown() override
    {
        qputenv("XDG_RUNTIME_DIR", savedRuntime);
        qputenv("WAYLAND_DISPLAY", savedDisplay);
    }

    // The newest screenshot once `test` holds for it.
    QImage shotWhere(const std::function<bool(const QImage&)>& test)
    {
        QImage shot;
        spinUntil(
            [&] {
                shot = sway.screenshot();
                return !shot.isNull() && test(shot);
            },
            5000);
        return shot;
    }
};

} // namespace

TEST_F(ArmedFrameWayland, TheFrameStandsAroundTheWatchedAreaOnTheOverlayLayerAndGoesAgain)
{
    std::unique_ptr<LayerShellArmedFrame> frame = LayerShellArmedFrame::connect();
    ASSERT_NE(frame, nullptr) << "sway has the layer shell";
    const QRect watched(200, 100, 160, 120);
    const QRect around = ArmedFrameDrawing::paintedRegion(watched).boundingRect();

    frame->show(watched, AreaOverlayStyle::outline);
    EXPECT_EQ(frame->placement(), around);
    const QImage shot = shotWhere([&](const QImage& s) { return painted(s, around) > 200; });
    ASSERT_EQ(shot.size(), QSize(640, 360));
    expectLineAround(shot, watched);
    // Nothing beyond the surface.
    EXPECT_EQ(painted(shot, QRect(0, 0, 640, around.top())), 0);
    EXPECT_EQ(painted(shot, QRect(0, around.bottom() + 1, 640, 360)), 0);
    EXPECT_EQ(painted(shot, QRect(0, 0, around.left(), 360)), 0);
    EXPECT_EQ(painted(shot, QRect(around.right() + 1, 0, 640, 360)), 0);

    // Marching ants move: the band changes from one picture to the next, the inside never.
    frame->show(watched, AreaOverlayStyle::march);
    const QImage first = shotWhere([&](const QImage& s) { return painted(s, around) > 200; });
    spinFor(300);
    const QImage later = shotWhere([&](const QImage& s) { return s != first; });
    EXPECT_NE(later.copy(around), first.copy(around)) << "the ants should have marched";
    EXPECT_EQ(painted(later, watched), 0);

    // Taken down: the output is the background again.
    frame->dismiss();
    EXPECT_FALSE(frame->isAnimating());
    EXPECT_EQ(frame->placement(), QRect());
    const QImage cleared = shotWhere([&](const QImage& s) { return painted(s, s.rect()) == 0; });
    EXPECT_EQ(painted(cleared, cleared.rect()), 0);

    // Near the output's corner the surface is cut to the output, and the part that shows is drawn.
    const QRect corner(560, 290, 120, 100);
    frame->show(corner, AreaOverlayStyle::bracket);
    EXPECT_EQ(
        frame->placement(), ArmedFrameDrawing::paintedRegion(corner).boundingRect().intersected(QRect(0, 0, 640, 360)));
    const QImage cut = shotWhere([&](const QImage& s) { return painted(s, s.rect()) > 50; });
    EXPECT_GT(painted(cut, QRect(540, 270, 20, 90)), 0);
    EXPECT_EQ(painted(cut, corner.intersected(cut.rect())), 0);
    EXPECT_EQ(painted(cut, QRect(0, 0, 500, 360)), 0);

    // The compositor goes away: the frame is gone, and showing it again does nothing.
    sway.stop();
    spinFor(200);
    frame->show(watched, AreaOverlayStyle::outline);
    EXPECT_EQ(frame->placement(), QRect());
    EXPECT_FALSE(frame->isAnimating());
}

TEST_F(ArmedFrameWayland, OnAScaledOutputTheFrameStandsAroundTheAreaInTheOutputsPixels)
{
    // The output shows 1280x720 pixels at scale 2; the stream, and so the watched area, counts them.
    sway.stop();
    ASSERT_EQ(sway.start({ .size = QSize(1280, 720), .background = background, .scale = 2 }), QString());
    qputenv("XDG_RUNTIME_DIR", sway.runtimeDir().toUtf8());
    qputenv("WAYLAND_DISPLAY", sway.displayName().toUtf8());
    std::unique_ptr<LayerShellArmedFrame> frame = LayerShellArmedFrame::connect();
    ASSERT_NE(frame, nullptr);
    // Odd pixels: the surface, in whole points of the output, must still hold all of the band.
    const QRect watched(401, 201, 321, 239);
    const QRect around = ArmedFrameDrawing::paintedRegion(watched).boundingRect();
    frame->show(watched, AreaOverlayStyle::outline);
    EXPECT_TRUE(frame->placement().contains(around)) << around.left() << "," << around.top();
    EXPECT_EQ(frame->placement().left() % 2, 0);
    EXPECT_EQ(frame->placement().width() % 2, 0);
    const QImage shot = shotWhere([&](const QImage& s) { return painted(s, around) > 400; });
    ASSERT_EQ(shot.size(), QSize(1280, 720));
    expectLineAround(shot, watched);
    EXPECT_EQ(painted(shot, shot.rect()), painted(shot, around));
}

TEST(ArmedFrameWaylandWithoutLayerShell, WestonGetsNoFrame)
{
    if (QStandardPaths::findExecutable(QStringLiteral("weston")).isEmpty()) GTEST_SKIP() << "weston is not installed";
    QTemporaryDir runtime;
    ASSERT_TRUE(runtime.isValid());
    QProcess weston;
    weston.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    QProcessEnvironment env;
    env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
    weston.setProcessEnvironment(env);
    weston.setProcessChannelMode(QProcess::MergedChannels);
    weston.start(QStringLiteral("weston"),
        { QStringLiteral("--backend=headless-backend.so"), QStringLiteral("--use-pixman"),
            QStringLiteral("--socket=wayland-velotape") });
    ASSERT_TRUE(weston.waitForStarted(5000));
    ASSERT_TRUE(spinUntil([&] { return QFile::exists(runtime.filePath(QStringLiteral("wayland-velotape"))); }, 10000))
        << weston.readAll().toStdString();
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR"), savedDisplay = qgetenv("WAYLAND_DISPLAY");
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    qputenv("WAYLAND_DISPLAY", "wayland-velotape");
    // The compositor answers, but has no layer shell: the window and the tray show the armed state.
    wl_display* answers = wl_display_connect(nullptr);
    ASSERT_NE(answers, nullptr);
    wl_display_disconnect(answers);
    EXPECT_EQ(LayerShellArmedFrame::connect(), nullptr);
    qputenv("XDG_RUNTIME_DIR", savedRuntime);
    qputenv("WAYLAND_DISPLAY", savedDisplay);
    weston.terminate();
    weston.waitForFinished(3000);
}

// The whole program: `velotape --headless` capturing through the portal, on a session whose
// compositor has the layer shell. Arming the monitor puts the frame (in the style of the settings, one
// with a text pill) around the area on the compositor's screen; disarming takes it away. Where the
// desktop shares a window instead of a screen no frame is put anywhere.
TEST(ArmedFrameWaylandEndToEnd, ArmingTheHeadlessInstanceShowsTheFrameOnTheCompositor)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (const QString missing = HeadlessSway::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    PortalDesktop desktop;
    ASSERT_EQ(desktop.start({ .size = QSize(640, 360) }), QString());
    HeadlessSway sway;
    ASSERT_EQ(sway.start({ .size = QSize(640, 360), .background = background }), QString());
    QTemporaryDir home;
    QProcessEnvironment env = desktop.environment();
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), QDir(sway.runtimeDir()).filePath(sway.displayName()));
    env.insert(QStringLiteral("TMPDIR"), home.path());
    const QString conf = HeadlessRun::writeSettings(
        env, home.path(), QStringLiteral("vt2.areaOverlayStyle=tactical\nvt2.areaOverlayEnabled=true\n"));
    ASSERT_FALSE(conf.isEmpty());

    const QString binary = QStringLiteral(VELOTAPE_BINARY);
    QProcess instance;
    ASSERT_TRUE(HeadlessRun::start(instance, binary, env));
    ASSERT_EQ(HeadlessRun::waitUntilBuffered(binary, env, 0.5), QString());
    int status = -1;
    QString answer = HeadlessRun::control(binary, env,
        { QStringLiteral("area"), QStringLiteral("200"), QStringLiteral("100"), QStringLiteral("160"),
            QStringLiteral("120") },
        &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    const QRect watched(200, 100, 160, 120);
    const QRect around = ArmedFrameDrawing::paintedRegion(watched).boundingRect();

    answer = HeadlessRun::control(binary, env, { QStringLiteral("arm") }, &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    QImage shot;
    EXPECT_TRUE(spinUntil(
        [&] {
            shot = sway.screenshot();
            return !shot.isNull() && painted(shot, around) > 200;
        },
        5000))
        << "no frame on the compositor's screen";
    EXPECT_EQ(painted(shot, watched), 0);
    EXPECT_EQ(painted(shot, QRect(0, 0, 640, 360)), painted(shot, around));
    EXPECT_EQ(instance.state(), QProcess::Running);

    answer = HeadlessRun::control(binary, env, { QStringLiteral("disarm") }, &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    EXPECT_TRUE(spinUntil(
        [&] {
            shot = sway.screenshot();
            return !shot.isNull() && painted(shot, shot.rect()) == 0;
        },
        5000))
        << "the frame stayed";
    HeadlessRun::stop(instance);

    // The desktop shares a window the next time: its pictures lie nowhere on the screen in
    // particular, so arming puts no frame anywhere, and the monitor is armed all the same.
    desktop.control(QStringLiteral("ShareWindow"), { true });
    ASSERT_TRUE(HeadlessRun::start(instance, binary, env));
    ASSERT_EQ(HeadlessRun::waitUntilBuffered(binary, env, 0.5), QString());
    answer = HeadlessRun::control(binary, env, { QStringLiteral("arm") }, &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    EXPECT_FALSE(spinUntil(
        [&] {
            shot = sway.screenshot();
            return !shot.isNull() && painted(shot, shot.rect()) > 0;
        },
        1500))
        << "a frame was put on the screen for a shared window";
    answer = HeadlessRun::control(binary, env, { QStringLiteral("arm") }, &status);
    EXPECT_EQ(answer, QStringLiteral("already armed"));
    HeadlessRun::stop(instance);
}

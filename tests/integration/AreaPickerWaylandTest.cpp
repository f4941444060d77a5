#include "CaptureTestSupport.h"
#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "monitor/AreaMonitor.h"
#include "platform/wayland/FrozenPicturePicker.h"
#include "platform/wayland/LayerShellAreaPicker.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "support/EventLoop.h"
#include "support/HeadlessRun.h"
#include "support/HeadlessSway.h"
#include "support/PortalDesktop.h"
#include "support/VirtualPointer.h"
#include "support/WestonDesktop.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QScopeGuard>
#include <QScreen>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <linux/input-event-codes.h>
#include <sys/prctl.h>

// The area picker of a Wayland desktop without the layer shell, on the real portal and PipeWire: a
// full-screen window of ours over a still of the shared stream. The window here is larger than the
// stream and of another shape, so the picture is scaled and letterboxed, and what the user drags
// must come back in the stream's own pixels, which is what the area monitor crops.
//
// Where the compositor has the layer shell (sway, headless), the picker is a surface of ours over
// the live screen, driven by a mouse of the test's own and checked on the compositor's screenshots.

namespace {

using CaptureTestSupport::near;

const QColor red(230, 20, 20), blue(20, 20, 230), green(20, 200, 20);

const QColor swayBackground(0x40, 0x80, 0xc0);
// The background under the picker's veil: each channel about two thirds of its own.
const QColor veiled(0x40 * 65 / 100, 0x80 * 65 / 100, 0xc0 * 65 / 100);

QString missingForLayerShell()
{
    if (const QString missing = HeadlessSway::missingProgram(); !missing.isEmpty()) return missing;
    return QStandardPaths::findExecutable(QStringLiteral("wtype")).isEmpty() ? QStringLiteral("wtype") : QString();
}

// Waits for a screenshot of `sway` on which `test` holds; the last one taken.
QImage shotWhere(const HeadlessSway& sway, const std::function<bool(const QImage&)>& test, int ms = 5000)
{
    QImage shot;
    spinUntil(
        [&] {
            shot = sway.screenshot();
            return !shot.isNull() && test(shot);
        },
        ms);
    return shot;
}

QString socketOf(const HeadlessSway& sway)
{
    return QDir(sway.runtimeDir()).filePath(sway.displayName());
}

bool veiledEverywhere(const QImage& s)
{
    return near(s, 5, s.height() - 5, veiled) && near(s, s.width() - 5, s.height() / 2, veiled);
}

// Presses Esc through wtype, while this process's event loop runs.
void pressEsc(const HeadlessSway& sway)
{
    QProcess wtype;
    QProcessEnvironment env;
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), sway.runtimeDir());
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), sway.displayName());
    wtype.setProcessEnvironment(env);
    // The headless compositor has no keyboard but wtype's own: the picker takes it once the seat
    // says it is there, and only then is Esc pressed.
    wtype.start(QStringLiteral("wtype"),
        { QStringLiteral("-s"), QStringLiteral("500"), QStringLiteral("-k"), QStringLiteral("Escape") });
    spinUntil([&] { return wtype.state() == QProcess::NotRunning; }, 5000);
}

class AreaPickerWayland : public ::testing::Test {
protected:
    PortalDesktop desktop;
    QTemporaryDir dir;
    std::unique_ptr<AppSettings> settings;
    std::shared_ptr<WaylandCaptureBackend> screen;
    FrozenPicturePicker* picker = nullptr; // owned by the controller
    std::unique_ptr<RecorderViewModel> vm;

    void SetUp() override
    {
        if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
            GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
        ASSERT_EQ(desktop.start({ .size = QSize(640, 360) }), QString());
        settings = std::make_unique<AppSettings>(
            std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
        settings->setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
        settings->setSystemAudioEnabled(false);
        screen = std::make_shared<WaylandCaptureBackend>(
            WaylandCaptureBackend::TokenStore { [] { return WaylandCaptureBackend::Kept {}; }, [](const auto&) {} },
            desktop.bus());
        RecorderViewModel::Backends backends;
        backends.screen = screen;
        auto made = std::make_unique<FrozenPicturePicker>([this]() -> std::optional<FrozenPicturePicker::Still> {
            const auto still = screen->newestPicture();
            if (!still) return std::nullopt;
            return FrozenPicturePicker::Still { still->origin, still->picture };
        });
        picker = made.get();
        backends.areaPicker = std::move(made);
        vm = std::make_unique<RecorderViewModel>(settings.get(), std::move(backends));
    }

    void TearDown() override { vm.reset(); }

    void fill(const QRect& r, const QColor& c)
    {
        desktop.control(QStringLiteral("Fill"), { r.x(), r.y(), r.width(), r.height(), c.name() });
    }

    // The stream runs and its newest picture shows `colour` at (x, y).
    bool streamShows(int x, int y, const QColor& colour)
    {
        return spinUntil(
            [&] {
                const std::optional<QImage> grab = screen->grabRect(QRectF(x, y, 1, 1));
                return grab && near(*grab, 0, 0, colour);
            },
            5000);
    }

    QImage shownByPicker()
    {
        QWindow* window = picker->window();
        return window ? window->screen()->grabWindow(window->winId()).toImage() : QImage();
    }
};

} // namespace

TEST_F(AreaPickerWayland, TheDragOnTheStillPictureBecomesTheWatchedAreaInStreamPixels)
{
    fill(QRect(0, 0, 320, 360), red);
    fill(QRect(320, 0, 320, 360), blue);
    fill(QRect(480, 40, 80, 80), green);
    // Before any stream there is nothing to pick on: the pick ends at once, and the desktop is not
    // made to ask what to share.
    ASSERT_TRUE(vm->areaCommands()->pickWatchArea());
    EXPECT_EQ(picker->window(), nullptr);
    EXPECT_EQ(desktop.control(QStringLiteral("ChooserShown")).toUInt(), 0u);

    bool started = false;
    vm->startUp([&] { started = true; });
    ASSERT_TRUE(spinUntil([&] { return started; }));
    vm->startPreview();
    ASSERT_TRUE(streamShows(500, 60, green));

    ASSERT_TRUE(vm->areaCommands()->pickWatchArea());
    QWindow* window = picker->window();
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(spinUntil([&] { return window->isExposed(); }, 5000));
    // The window fills the offscreen screen, 800 wide and taller than 16:9: the 640x360 picture is
    // shown scaled up, between black bands.
    const QSize shown = window->size();
    ASSERT_EQ(shown, window->screen()->size());
    const QRectF at = FrozenPicturePicker::fitted(QSize(640, 360), QRectF(QPointF(), shown));
    ASSERT_GT(at.top(), 10.0) << "the picture should be letterboxed";
    const double scale = at.width() / 640;
    auto toWindow = [&](double x, double y) { return (at.topLeft() + QPointF(x, y) * scale).toPoint(); };

    // The screen changes under the picker: it keeps showing the picture of when it was opened.
    fill(QRect(480, 40, 80, 80), blue);
    ASSERT_TRUE(streamShows(500, 60, blue));
    spinFor(100);
    const QImage still = shownByPicker();
    ASSERT_FALSE(still.isNull());
    // Dimmed, but still green where the green square was, and black in the band above.
    const QColor greenThere = QColor::fromRgb(still.pixel(toWindow(520, 80)));
    EXPECT_GT(greenThere.green(), 2 * greenThere.blue()) << greenThere.name().toStdString();
    EXPECT_EQ(QColor::fromRgb(still.pixel(5, 5)), QColor(Qt::black));

    // A drag from the stream's (80, 40) to (280, 140), made on the scaled picture.
    QTest::mousePress(window, Qt::LeftButton, {}, toWindow(80, 40));
    QTest::mouseMove(window, toWindow(180, 90));
    QTest::mouseMove(window, toWindow(280, 140));
    QTest::mouseRelease(window, Qt::LeftButton, {}, toWindow(280, 140));
    EXPECT_EQ(picker->window(), nullptr); // the pick is over
    // Once the picker has left the screen, the area is watched: its rectangle in stream pixels,
    // remembered in the settings, with a reference taken from the stream.
    ASSERT_TRUE(spinUntil([&] { return settings->areaMonitorRect().has_value(); }, 5000));
    const QRectF picked = *settings->areaMonitorRect();
    EXPECT_NEAR(picked.x(), 80, 1);
    EXPECT_NEAR(picked.y(), 40, 1);
    EXPECT_NEAR(picked.width(), 200, 2);
    EXPECT_NEAR(picked.height(), 100, 2);
    EXPECT_EQ(vm->areaMonitor()->rect(), picked);
    EXPECT_TRUE(settings->areaReferenceSignature().has_value());

    // Esc, a click that is no rectangle, and the desktop closing the window each end a pick with
    // nothing changed.
    const std::optional<QByteArray> reference = settings->areaReferenceSignature();
    ASSERT_TRUE(vm->areaCommands()->pickWatchArea());
    window = picker->window();
    ASSERT_NE(window, nullptr);
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_EQ(picker->window(), nullptr);
    ASSERT_TRUE(vm->areaCommands()->pickWatchArea());
    window = picker->window();
    ASSERT_NE(window, nullptr);
    QTest::mouseClick(window, Qt::LeftButton, {}, toWindow(300, 200));
    EXPECT_EQ(picker->window(), nullptr);
    // So does the desktop closing the window: the pick is over, and a new one can start.
    bool answered = false;
    picker->pick([&](std::optional<QRectF> rect) { answered = !rect.has_value(); });
    ASSERT_NE(picker->window(), nullptr);
    picker->window()->close();
    EXPECT_TRUE(answered);
    EXPECT_EQ(picker->window(), nullptr);
    spinFor(int(AreaCommands::pickerLeavesScreen.count()) + 200);
    EXPECT_EQ(settings->areaMonitorRect(), picked);
    EXPECT_EQ(settings->areaReferenceSignature(), reference);
}

// The program with its window on Qt's Wayland platform, on a real compositor without the layer shell
// (weston, headless): the picker is a full-screen window showing the still, dimmed, over everything
// else.
TEST(AreaPickerWaylandWindow, OnACompositorWithoutTheLayerShellThePickerFillsTheScreenWithTheStill)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (const QString missing = WestonDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (!QFile::exists(
            QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms/libqwayland-generic.so")))
        GTEST_SKIP() << "Qt's Wayland platform (qt6-wayland) is not installed: run scripts/deps";
    PortalDesktop desktop;
    ASSERT_EQ(desktop.start({ .size = QSize(640, 360) }), QString());
    const auto fill = [&](const QRect& r, const QColor& c) {
        desktop.control(QStringLiteral("Fill"), { r.x(), r.y(), r.width(), r.height(), c.name() });
    };
    fill(QRect(0, 0, 320, 360), red);
    fill(QRect(320, 0, 320, 360), blue);
    fill(QRect(480, 40, 80, 80), green);
    WestonDesktop weston;
    ASSERT_EQ(weston.start(desktop.environment(), QSize(640, 360)), QString());

    QTemporaryDir home;
    QProcessEnvironment env = weston.clientEnvironment(desktop.environment());
    env.insert(QStringLiteral("TMPDIR"), home.path());
    const QString conf = HeadlessRun::writeSettings(env, home.path());
    ASSERT_FALSE(conf.isEmpty());

    const QString binary = QStringLiteral(VELOTAPE_BINARY);
    QProcess app;
    app.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedChannels);
    app.start(binary, { QStringLiteral("--source"), QStringLiteral("display:1") });
    ASSERT_TRUE(app.waitForStarted(5000));
    ASSERT_EQ(HeadlessRun::waitUntilBuffered(binary, env, 0.3), QString());
    int status = -1;
    const QString answer
        = HeadlessRun::control(binary, env, { QStringLiteral("area"), QStringLiteral("--pick") }, &status);
    ASSERT_EQ(status, 0) << answer.toStdString();

    // The whole output is the still, dimmed: red left, blue right, the green square where it was.
    QImage shot;
    const auto dimmed = [](const QImage& s, int x, int y, const QColor& c) {
        const QColor got = QColor::fromRgb(s.pixel(x, y));
        const int channel[3] = { got.red(), got.green(), got.blue() };
        const int wanted[3] = { c.red(), c.green(), c.blue() };
        const int strongest = int(std::max_element(wanted, wanted + 3) - wanted);
        for (int i = 0; i < 3; ++i)
            if (i != strongest && channel[strongest] < 2 * channel[i] + 40) return false;
        return true;
    };
    EXPECT_TRUE(spinUntil(
        [&] {
            shot = weston.screenshot().value_or(QImage());
            return !shot.isNull() && dimmed(shot, 40, 300, red) && dimmed(shot, 600, 300, blue)
                && dimmed(shot, 520, 80, green) && dimmed(shot, 5, 355, red) && dimmed(shot, 635, 5, blue);
        },
        10000))
        << "the picker did not fill the screen with the still";
    app.terminate();
    if (!app.waitForFinished(5000)) app.kill();
}

// On an output scaled by 2 the stream counts the output's pixels: a drag over the live screen comes
// back in them, the screen shows through the dragged rectangle and dimmed around it, and Esc, a
// right click or a mere click each end a pick with none.
TEST(AreaPickerLayerShell, ADragOverTheLiveScreenGivesTheStreamsPixelsAndTheRestCancel)
{
    if (const QString missing = missingForLayerShell(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    HeadlessSway sway;
    ASSERT_EQ(sway.start({ .size = QSize(1280, 720), .background = swayBackground, .scale = 2 }), QString());
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR"), savedDisplay = qgetenv("WAYLAND_DISPLAY");
    qputenv("XDG_RUNTIME_DIR", sway.runtimeDir().toUtf8());
    qputenv("WAYLAND_DISPLAY", sway.displayName().toUtf8());
    const auto restore = qScopeGuard([&] {
        qputenv("XDG_RUNTIME_DIR", savedRuntime);
        qputenv("WAYLAND_DISPLAY", savedDisplay);
    });
    std::unique_ptr<LayerShellAreaPicker> picker
        = LayerShellAreaPicker::connect([] { return std::optional(QRect(0, 0, 1280, 720)); });
    ASSERT_NE(picker, nullptr) << "sway has the layer shell";
    std::unique_ptr<VirtualPointer> mouse = VirtualPointer::connect(socketOf(sway), QSize(640, 360));
    ASSERT_NE(mouse, nullptr) << "sway has virtual pointers";

    std::optional<std::optional<QRectF>> answer;
    const auto pick = [&] {
        answer.reset();
        picker->pick([&](std::optional<QRectF> rect) { answer = rect; });
        return !shotWhere(sway, veiledEverywhere).isNull() && veiledEverywhere(sway.screenshot());
    };
    ASSERT_TRUE(pick()) << "no veil over the output";
    EXPECT_EQ(picker->covered(), QRect(0, 0, 1280, 720));

    // From (100, 50) to (300, 150) of the desktop's layout: (200, 100) to (600, 300) of its pixels.
    // On the way the rectangle was larger: what it uncovered then is veiled again.
    mouse->moveTo(QPoint(100, 50));
    mouse->press(BTN_LEFT);
    mouse->moveTo(QPoint(350, 200));
    const auto uncovered = [](const QImage& s) { return near(s, 650, 350, swayBackground); };
    ASSERT_TRUE(uncovered(shotWhere(sway, uncovered)));
    mouse->moveTo(QPoint(300, 150));
    const auto dragShown = [](const QImage& s) {
        return near(s, 400, 200, swayBackground) && near(s, 220, 285, swayBackground)
            && near(s, 585, 115, swayBackground) && near(s, 400, 600, veiled) && near(s, 800, 200, veiled)
            && near(s, 150, 200, veiled) && near(s, 650, 350, veiled);
    };
    const QImage dragging = shotWhere(sway, dragShown);
    EXPECT_TRUE(dragShown(dragging)) << "the rectangle should be clear and the rest veiled";
    mouse->release(BTN_LEFT);
    ASSERT_TRUE(spinUntil([&] { return answer.has_value(); }, 5000));
    EXPECT_EQ(*answer, QRectF(200, 100, 400, 200));
    EXPECT_EQ(picker->covered(), QRect());
    EXPECT_TRUE(near(
        shotWhere(sway, [](const QImage& s) { return near(s, 150, 200, swayBackground); }), 150, 200, swayBackground))
        << "the veil stayed";

    ASSERT_TRUE(pick());
    mouse->moveTo(QPoint(320, 180));
    pressEsc(sway);
    ASSERT_TRUE(spinUntil([&] { return answer.has_value(); }, 5000)) << "Esc did not end the pick";
    EXPECT_EQ(*answer, std::nullopt);

    ASSERT_TRUE(pick());
    mouse->moveTo(QPoint(300, 200));
    mouse->press(BTN_RIGHT);
    mouse->release(BTN_RIGHT);
    ASSERT_TRUE(spinUntil([&] { return answer.has_value(); }, 5000)) << "the right button did not end the pick";
    EXPECT_EQ(*answer, std::nullopt);

    // 4 points of the layout are 8 pixels: too small a drag.
    ASSERT_TRUE(pick());
    mouse->moveTo(QPoint(100, 100));
    mouse->press(BTN_LEFT);
    mouse->moveTo(QPoint(104, 160));
    mouse->release(BTN_LEFT);
    ASSERT_TRUE(spinUntil([&] { return answer.has_value(); }, 5000));
    EXPECT_EQ(*answer, std::nullopt);
}

// `velotape --headless`, capturing through the portal on a session whose compositor has the layer
// shell: `velotape area --pick` puts the picker over the screen, and the rectangle dragged on it
// becomes the watched area.
TEST(AreaPickerLayerShell, TheHeadlessInstancePicksTheWatchedAreaOnTheCompositor)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (const QString missing = missingForLayerShell(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    PortalDesktop desktop;
    ASSERT_EQ(desktop.start({ .size = QSize(640, 360) }), QString());
    HeadlessSway sway;
    ASSERT_EQ(sway.start({ .size = QSize(640, 360), .background = swayBackground }), QString());
    QTemporaryDir home;
    QProcessEnvironment env = desktop.environment();
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), socketOf(sway));
    env.insert(QStringLiteral("TMPDIR"), home.path());
    const QString conf = HeadlessRun::writeSettings(env, home.path());
    ASSERT_FALSE(conf.isEmpty());

    const QString binary = QStringLiteral(VELOTAPE_BINARY);
    QProcess instance;
    ASSERT_TRUE(HeadlessRun::start(instance, binary, env));
    ASSERT_EQ(HeadlessRun::waitUntilBuffered(binary, env, 0.3), QString());
    // The mouse is plugged in before the pick, as a user's is: the compositor has none of its own.
    std::unique_ptr<VirtualPointer> mouse = VirtualPointer::connect(socketOf(sway), QSize(640, 360));
    ASSERT_NE(mouse, nullptr);
    int status = -1;
    const QString answer
        = HeadlessRun::control(binary, env, { QStringLiteral("area"), QStringLiteral("--pick") }, &status);
    ASSERT_EQ(status, 0) << answer.toStdString();
    ASSERT_TRUE(veiledEverywhere(shotWhere(sway, veiledEverywhere))) << "no picker on the compositor's screen";

    mouse->moveTo(QPoint(80, 40));
    mouse->press(BTN_LEFT);
    mouse->moveTo(QPoint(280, 140));
    mouse->release(BTN_LEFT);
    QString said;
    EXPECT_TRUE(HeadlessRun::said(instance, said, QStringLiteral("Watch area captured"), 5000)) << said.toStdString();
    HeadlessRun::stop(instance);
    const AppSettings kept(std::make_unique<QSettings>(conf, QSettings::IniFormat));
    EXPECT_EQ(kept.areaMonitorRect(), QRectF(80, 40, 200, 100));

    // The desktop shares a window the next time: its pictures lie nowhere on the screen in
    // particular, and without the window there is nothing to pick on.
    desktop.control(QStringLiteral("ShareWindow"), { true });
    ASSERT_TRUE(HeadlessRun::start(instance, binary, env));
    ASSERT_EQ(HeadlessRun::waitUntilBuffered(binary, env, 0.3), QString());
    HeadlessRun::control(binary, env, { QStringLiteral("area"), QStringLiteral("--pick") }, &status);
    EXPECT_FALSE(veiledEverywhere(shotWhere(sway, veiledEverywhere, 1500))) << "a picker over the screen for a window";
    HeadlessRun::stop(instance);
}

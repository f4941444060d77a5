#include "app/AppSettings.h"
#include "app/session/AreaCommands.h"
#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "monitor/AreaMonitor.h"
#include "platform/wayland/FrozenPicturePicker.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "support/EventLoop.h"
#include "support/HeadlessRun.h"
#include "support/HeadlessSway.h"
#include "support/PortalDesktop.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QScreen>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <sys/prctl.h>

// The area picker of a Wayland desktop without the layer shell, on the real portal and PipeWire: a
// full-screen window of ours over a still of the shared stream. The window here is larger than the
// stream and of another shape, so the picture is scaled and letterboxed, and what the user drags
// must come back in the stream's own pixels, which is what the area monitor crops.

namespace {

const QColor red(230, 20, 20), blue(20, 20, 230), green(20, 200, 20);

bool near(const QImage& image, int x, int y, const QColor& expected)
{
    if (!image.valid(x, y)) return false;
    const QColor got = QColor::fromRgb(image.pixel(x, y));
    return std::abs(got.red() - expected.red()) <= 12 && std::abs(got.green() - expected.green()) <= 12
        && std::abs(got.blue() - expected.blue()) <= 12;
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

// The program with its window on Qt's Wayland platform, on a real compositor (sway, headless): the
// picker is a full-screen window showing the still, dimmed, over everything else.
TEST(AreaPickerWaylandWindow, OnARealCompositorThePickerFillsTheScreenWithTheStill)
{
    if (const QString missing = PortalDesktop::missingProgram(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString() << " is not installed: run scripts/deps";
    if (const QString missing = HeadlessSway::missingProgram(); !missing.isEmpty())
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
    HeadlessSway sway;
    const QColor background(0x20, 0x40, 0x60);
    ASSERT_EQ(sway.start({ .size = QSize(640, 360), .background = background }), QString());

    QTemporaryDir home;
    QProcessEnvironment env = desktop.environment();
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), QDir(sway.runtimeDir()).filePath(sway.displayName()));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    env.insert(QStringLiteral("TMPDIR"), home.path());
    const QString config = env.value(QStringLiteral("XDG_CONFIG_HOME")) + QStringLiteral("/Velotape");
    QDir().mkpath(config);
    QFile conf(config + QStringLiteral("/Velotape.conf"));
    ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.playSound=false\nvt2.savePath=%1\n")
                   .arg(home.path())
                   .toUtf8());
    conf.close();

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
            shot = sway.screenshot();
            return !shot.isNull() && dimmed(shot, 40, 300, red) && dimmed(shot, 600, 300, blue)
                && dimmed(shot, 520, 80, green) && dimmed(shot, 5, 355, red) && dimmed(shot, 635, 5, blue);
        },
        10000))
        << "the picker did not fill the screen with the still";
    app.terminate();
    if (!app.waitForFinished(5000)) app.kill();
}

#include "../recorder/ClipProbe.h"
#include "app/AppSettings.h"
#include "app/session/CameraWiring.h"
#include "devices/CameraCapture.h"
#include "journal/ClipFrameReader.h"
#include "platform/Platform.h"
#include "recorder/CameraCompositor.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"

#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The test camera (an FFmpeg lavfi graph through the real camera backend) burnt into a real
// recording on the ring's real clock, the clip decoded as a player would show it.
namespace {

const QRgb screenColour = qRgb(60, 60, 60);
const QRgb cameraColour = qRgb(230, 20, 20);
constexpr int width = 640;
constexpr int height = 360;

bool near(QRgb a, QRgb b, int tolerance = 40)
{
    return std::abs(qRed(a) - qRed(b)) <= tolerance && std::abs(qGreen(a) - qGreen(b)) <= tolerance
        && std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

struct CameraRig {
    QTemporaryDir dir;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<CameraCapture> camera;
    SegmentedRecorder recorder;
    std::unique_ptr<CameraWiring> wiring;
    QStringList toasts;
    QString clip;

    // The camera as the settings screen leaves it: on, a circle at (0.7, 0.4) of 0.3 the height.
    explicit CameraRig(const QByteArray& graph)
    {
        qputenv("VELOTAPE_FAKE_CAMERA", graph);
        settings = std::make_unique<AppSettings>(
            std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
        settings->setCameraShape(CameraShape::circle);
        settings->setCameraPositionX(0.7);
        settings->setCameraPositionY(0.4);
        settings->setCameraSize(0.3);
        settings->setCameraFrameEnabled(false);
        settings->setCameraEnabled(true);
        Platform platform(Platform::Backend::x11);
        camera = std::make_unique<CameraCapture>(platform.cameras());
        recorder.configure(width, height, 2.0, 10.0, 30);
        recorder.onFinished = [this](const QString& path) { clip = path; };
        wiring = std::make_unique<CameraWiring>(
            *settings, *camera, recorder, [this](const QString& text) { toasts << text; });
    }
    ~CameraRig()
    {
        wiring.reset();
        camera.reset();
        qunsetenv("VELOTAPE_FAKE_CAMERA");
    }

    // One picture of a still screen, then nothing from the screen again.
    void showStillScreen()
    {
        QImage screen(width, height, QImage::Format_RGB32);
        screen.fill(screenColour);
        recorder.armBuffering();
        recorder.ingest(VideoFrame { screen, MediaTime::fromNanoseconds(monotonicNanoseconds()) });
    }
    QString record(int milliseconds, const std::function<void()>& meanwhile = {})
    {
        recorder.startRecording(dir.filePath(QStringLiteral("clip.mp4")));
        if (meanwhile)
            meanwhile();
        else
            spinFor(milliseconds);
        recorder.stopRecording();
        spinUntil([&] { return !clip.isEmpty(); }, 30000);
        return clip;
    }
    QRectF bubble() const
    {
        CameraComposite placed = *CameraWiring::placementOf(*settings);
        return CameraCompositor::overlayRect(QSizeF(width, height), placed);
    }
};

QImage frameAt(const QString& path, double seconds)
{
    ClipFrameReader reader(path);
    return reader.frameAt(seconds, QSize(width, height), 0.05).value_or(QImage());
}

} // namespace

TEST(CameraClip, TheTestCameraIsBurntIntoItsCircleAtTheStoredPlaceAndAStillScreenKeepsTheFrameRate)
{
    CameraRig rig("color=c=0xE61414:size=320x240:rate=30");
    ASSERT_TRUE(spinUntil([&] { return !rig.camera->latestFrame().isNull(); }, 10000));
    // No camera was saved: the test camera, listed first, is the one chosen.
    ASSERT_FALSE(rig.camera->availableDevices().empty());
    EXPECT_EQ(rig.camera->availableDevices().front().name, QStringLiteral("Test camera"));
    EXPECT_EQ(rig.camera->currentDeviceID(), rig.camera->availableDevices().front().uniqueID);

    rig.showStillScreen();
    const QString path = rig.record(1500);
    ASSERT_FALSE(path.isEmpty());

    // The screen sent one picture; the clip still holds 30 a second of it, with the camera in.
    const ClipProbe probe = ClipProbe::read(path);
    ASSERT_TRUE(probe.opened);
    ASSERT_GT(probe.duration(), 1.2);
    EXPECT_GE(double(probe.frames.size()), 0.8 * 30 * probe.duration()) << probe.frames.size() << " frames";

    const QImage picture = frameAt(path, probe.duration() / 2);
    ASSERT_FALSE(picture.isNull());
    ASSERT_EQ(picture.size(), QSize(width, height));
    const QRectF bubble = rig.bubble();
    EXPECT_NEAR(bubble.center().x(), 448, 1e-9);
    EXPECT_NEAR(bubble.center().y(), 144, 1e-9);
    EXPECT_NEAR(bubble.width(), 108, 1e-9);
    for (QPointF inside : { bubble.center(), bubble.center() + QPointF(44, 0), bubble.center() - QPointF(0, 44) })
        EXPECT_TRUE(near(picture.pixel(inside.toPoint()), cameraColour)) << inside.x() << "," << inside.y();
    // The corners of the circle's square, just outside the bubble, and far away: the screen.
    for (QPointF outside : { bubble.topLeft() + QPointF(4, 4), bubble.bottomRight() - QPointF(4, 4),
             bubble.center() + QPointF(60, 0), QPointF(40, 320) })
        EXPECT_TRUE(near(picture.pixel(outside.toPoint()), screenColour, 16)) << outside.x() << "," << outside.y();
}

TEST(CameraClip, AMovingScreenCarriesTheCameraInItsOwnFramesWithNoneAddedBetween)
{
    CameraRig rig("color=c=0xE61414:size=320x240:rate=30");
    ASSERT_TRUE(spinUntil([&] { return !rig.camera->latestFrame().isNull(); }, 10000));
    rig.showStillScreen();
    QImage screen(width, height, QImage::Format_RGB32);
    screen.fill(screenColour);
    // The screen changes 30 times a second, as the frame rate asks.
    const QString path = rig.record(0, [&] {
        QElapsedTimer clock;
        clock.start();
        for (int frame = 1; frame <= 45; ++frame) {
            spinUntil([&] { return clock.elapsed() >= frame * 1000 / 30; });
            rig.recorder.ingest(VideoFrame { screen, MediaTime::fromNanoseconds(monotonicNanoseconds()) });
        }
    });
    ASSERT_FALSE(path.isEmpty());
    const ClipProbe probe = ClipProbe::read(path);
    ASSERT_GT(probe.duration(), 1.0);
    const double rate = (probe.frames.size() - 1) / probe.duration();
    EXPECT_GT(rate, 24);
    EXPECT_LT(rate, 34);
}

TEST(CameraClip, ACameraThatVanishesMidRecordingSaysSoAndTheClipGoesOnWithoutTheBubble)
{
    // A camera that stops sending after a second, as an unplugged one does.
    CameraRig rig("color=c=0xE61414:size=320x240:rate=30:duration=1");
    ASSERT_TRUE(spinUntil([&] { return !rig.camera->latestFrame().isNull(); }, 10000));
    rig.showStillScreen();
    const QString path = rig.record(2500);
    ASSERT_FALSE(path.isEmpty());

    ASSERT_EQ(rig.toasts.size(), 1);
    EXPECT_TRUE(rig.toasts.front().startsWith(QStringLiteral("The camera \"Test camera\" stopped")))
        << rig.toasts.front().toStdString();
    EXPECT_FALSE(rig.camera->isRunning());

    const ClipProbe probe = ClipProbe::read(path);
    ASSERT_TRUE(probe.opened);
    // The screen stood still from the start: the clip lasts until the stop all the same, and its
    // last picture, without the bubble, lasts from the loss to the end.
    EXPECT_GT(probe.videoEnd - probe.frames.front().seconds, 2.0);
    const QPoint centre = rig.bubble().center().toPoint();
    const QImage early = frameAt(path, 0.3);
    const QImage late = frameAt(path, probe.videoEnd - 0.1);
    ASSERT_FALSE(early.isNull());
    ASSERT_FALSE(late.isNull());
    EXPECT_TRUE(near(early.pixel(centre), cameraColour));
    EXPECT_TRUE(near(late.pixel(centre), screenColour, 16));
}

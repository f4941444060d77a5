#include "devices/CameraCapture.h"

#include "platform/camera/AvDeviceCameras.h"
#include "support/EventLoop.h"

#include <QDir>

#include <gtest/gtest.h>

// Which camera opens and what the user reads when none can. The real backend where the machine
// can show it; a scripted one for a busy camera, which no test can make on demand.
namespace {

class ScriptedCameras : public CameraBackend {
public:
    struct Stream : CameraStream {
        explicit Stream(std::vector<QString>* closed, QString id)
            : closed(closed)
            , id(std::move(id))
        {
        }
        ~Stream() override { closed->push_back(id); }
        std::vector<QString>* closed;
        QString id;
    };

    std::vector<CameraDevice> devices;
    Failure failure = Failure::none;
    QString error;
    std::vector<QString> opened;
    std::vector<QString> closed;

    Listing listDevices() override { return { devices, {} }; }
    Opened open(const QString& uniqueID, PictureSink onPicture, LostSink) override
    {
        if (failure != Failure::none) return { nullptr, failure, error };
        opened.push_back(uniqueID);
        QImage picture(4, 4, QImage::Format_RGB32);
        picture.fill(Qt::green);
        onPicture(picture);
        return { std::make_unique<Stream>(&closed, uniqueID), Failure::none, {} };
    }
};

void settle(CameraCapture& camera)
{
    camera.waitUntilIdle();
    spinFor(20);
}

} // namespace

TEST(CameraCapture, TheSavedCameraOpensAGoneOneFallsBackToTheFirstAndASwitchClosesTheOldOne)
{
    auto backend = std::make_shared<ScriptedCameras>();
    backend->devices = { { QStringLiteral("/dev/video0"), QStringLiteral("Integrated Camera") },
        { QStringLiteral("/dev/video2"), QStringLiteral("USB Camera") } };
    CameraCapture camera(backend);

    camera.start(QStringLiteral("/dev/video9")); // unplugged since it was saved
    settle(camera);
    EXPECT_TRUE(camera.isRunning());
    EXPECT_FALSE(camera.errorMessage());
    EXPECT_EQ(camera.currentDeviceID(), QStringLiteral("/dev/video0"));
    EXPECT_FALSE(camera.latestFrame().isNull());
    EXPECT_FALSE(camera.pictureSlot().lock()->lock()->isNull());

    camera.start(QStringLiteral("/dev/video0")); // the open one: nothing happens
    camera.start(QStringLiteral("/dev/video2"));
    settle(camera);
    EXPECT_EQ(backend->opened, (std::vector<QString> { QStringLiteral("/dev/video0"), QStringLiteral("/dev/video2") }));
    EXPECT_EQ(backend->closed, (std::vector<QString> { QStringLiteral("/dev/video0") }));
    EXPECT_TRUE(camera.isRunning());

    // A stop closes it and clears the display; the compositor's picture stays for the next start.
    camera.stop();
    settle(camera);
    EXPECT_FALSE(camera.isRunning());
    EXPECT_TRUE(camera.latestFrame().isNull());
    EXPECT_EQ(backend->closed.size(), 2u);
}

TEST(CameraCapture, ABusyCameraAndNoCameraAtAllSayWhatHappenedInPlainWords)
{
    auto backend = std::make_shared<ScriptedCameras>();
    backend->devices = { { QStringLiteral("/dev/video0"), QStringLiteral("Integrated Camera") } };
    backend->failure = CameraBackend::Failure::busy;
    backend->error = QStringLiteral("Device or resource busy");
    CameraCapture camera(backend);
    camera.start(std::nullopt);
    settle(camera);
    EXPECT_FALSE(camera.isRunning());
    EXPECT_EQ(camera.errorMessage(), QStringLiteral("Couldn't open camera: the camera is busy in another program"));

    backend->failure = CameraBackend::Failure::other;
    backend->error = QStringLiteral("Input/output error");
    camera.start(std::nullopt);
    settle(camera);
    EXPECT_EQ(camera.errorMessage(), QStringLiteral("Couldn't open camera: Input/output error"));

    // The real backend on a machine without a camera device, and without a test camera.
    if (!QDir(QStringLiteral("/dev")).entryList({ QStringLiteral("video*") }, QDir::System).isEmpty())
        GTEST_SKIP() << "this machine has a camera device";
    CameraCapture none(std::make_shared<AvDeviceCameras>(QByteArray()));
    none.start(QStringLiteral("/dev/video0"));
    settle(none);
    EXPECT_FALSE(none.isRunning());
    EXPECT_EQ(none.errorMessage(), QStringLiteral("No camera found."));
    EXPECT_TRUE(none.availableDevices().empty());
}

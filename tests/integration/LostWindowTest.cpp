#include "CaptureTestSupport.h"
#include "X11TestClient.h"
#include "app/AppSettings.h"
#include "app/control/ControlCommands.h"
#include "app/session/LostWindowWatch.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/TestDesktop.h"

#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The session controller on a private Xvfb, when the window it captures is closed and opened again.
using namespace CaptureTestSupport;

TEST(LostWindow, AClosedWindowGivesWayToItsDisplayAndIsPickedUpAgainWhenItReopens)
{
    TestDesktop desktop;
    ASSERT_EQ(desktop.start({ .width = 640, .height = 360, .audio = false }), QString());
    X11TestClient client;
    ASSERT_TRUE(client.isConnected());
    const QColor grey(128, 128, 128), yellow(255, 255, 0), cyan(0, 255, 255);
    const xcb_window_t backdrop
        = client.create({ .rect = QRect(0, 0, 640, 360), .wmClass = "Backdrop", .title = QStringLiteral("Backdrop") });
    client.fill(backdrop, QRect(0, 0, 640, 360), grey);
    const X11TestClient::Window chartWindow
        = { .rect = QRect(200, 100, 240, 160), .wmClass = "Chart", .title = QStringLiteral("Order book") };
    const xcb_window_t chart = client.create(chartWindow);
    client.fill(chart, QRect(0, 0, 240, 160), yellow);

    QTemporaryDir dir;
    AppSettings settings(
        std::make_unique<QSettings>(dir.filePath(QStringLiteral("Velotape.conf")), QSettings::IniFormat));
    settings.setSaveFolderPath(dir.filePath(QStringLiteral("clips")));
    settings.setSystemAudioEnabled(false);
    const QString chosen = QStringLiteral("window:Chart@@Order book");
    settings.setSavedSourceDescriptor(chosen);
    RecorderViewModel::Backends backends;
    backends.screen = std::make_shared<X11CaptureBackend>();
    RecorderViewModel vm(&settings, std::move(backends));
    CaptureEngine& engine = *vm.engine();
    FrameLog frames(engine);
    ControlCommands commands(vm);
    QStringList toasts;
    QObject::connect(vm.status(), &SessionStatus::toastChanged, [&] {
        if (vm.status()->toast()) toasts << *vm.status()->toast();
    });
    auto windowSelected = [&engine] {
        const auto& source = engine.selectedSource();
        return source && source->kind() == CaptureSource::Kind::window ? source->capturedWindow().windowID : 0u;
    };

    // As the application starts: the saved window is restored and streamed.
    bool started = false;
    vm.startUp([&] { started = true; });
    ASSERT_TRUE(spinUntil([&] { return started; }));
    vm.startPreview();
    ASSERT_EQ(windowSelected(), chart);
    client.fill(chart, QRect(0, 0, 240, 160), yellow); // painted again once redirected
    // Colours are read away from the middle, where the pointer sits and is drawn in.
    ASSERT_TRUE(frames.waitFor(0, [&](const QImage& i) { return near(i, 30, 30, yellow); }));

    // Closed: the display is recorded instead, in the same picture size, and the toast says so.
    // The status no longer names the window, and the window stays the saved choice.
    size_t seen = frames.count();
    client.destroy(chart);
    ASSERT_TRUE(spinUntil(
        [&] {
            return toasts.contains(
                QStringLiteral("The window “Order book” was closed; recording the whole display until it reopens"));
        },
        5000))
        << toasts.join(QLatin1Char('|')).toStdString();
    ASSERT_TRUE(engine.isStreaming());
    EXPECT_EQ(engine.selectedSource()->kind(), CaptureSource::Kind::display);
    ASSERT_TRUE(frames.waitFor(seen, [&](const QImage& i) { return near(i, 30, 30, grey); }));
    EXPECT_EQ(frames.last().size(), QSize(240, 160));
    const QString whileAway = commands.status();
    EXPECT_TRUE(whileAway.startsWith(QStringLiteral("buffering"))) << whileAway.toStdString();
    EXPECT_FALSE(whileAway.contains(QStringLiteral("Chart"))) << whileAway.toStdString();
    EXPECT_EQ(settings.savedSourceDescriptor(), chosen);

    // A window of the same application and title opens elsewhere: it is recorded again.
    X11TestClient::Window reopened = chartWindow;
    reopened.rect = QRect(40, 40, 240, 160);
    const xcb_window_t again = client.create(reopened);
    client.fill(again, QRect(0, 0, 240, 160), cyan);
    const int patience = int(std::chrono::milliseconds(LostWindowWatch::checkInterval).count()) + 5000;
    ASSERT_TRUE(spinUntil([&] { return windowSelected() == again; }, patience))
        << toasts.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(toasts.back(), QStringLiteral("The window “Order book” is back; recording it again"));
    seen = frames.count();
    client.fill(again, QRect(0, 0, 240, 160), cyan);
    ASSERT_TRUE(frames.waitFor(seen, [&](const QImage& i) { return near(i, 30, 30, cyan); }))
        << describe(frames.last(), 30, 30);
    const QString back = commands.status();
    EXPECT_TRUE(back.startsWith(QStringLiteral("buffering")) && back.contains(QStringLiteral("(source: Chart)")))
        << back.toStdString();
    EXPECT_EQ(settings.savedSourceDescriptor(), chosen);
}

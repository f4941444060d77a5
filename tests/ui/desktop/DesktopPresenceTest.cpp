#include "DesktopServices.h"
#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/AppSettings.h"
#include "app/session/RecorderViewModel.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/SessionBus.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/TrayMenu.h"

#include <QAction>
#include <QDBusArgument>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMainWindow>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

// The window among a desktop's services on the harness's Xvfb: a tray host, a notification daemon
// and a file manager on the private session bus, each recording what the program asks of it.
namespace {

class DesktopPresence : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(testSessionBus(), nullptr);
        services = std::make_unique<DesktopServices>(testSessionBus()->address());
        ASSERT_TRUE(services->error().isEmpty()) << qPrintable(services->error());
        delegate = launchWindow(clips.path(), home.filePath(QStringLiteral("control")));
        ASSERT_NE(delegate, nullptr);
        vm = delegate->viewModel();
        // The first display, once listed, and the ring running on it.
        ASSERT_TRUE(spinUntil([this] { return vm->engine()->selectedSource().has_value(); }));
        vm->startPreview();
        ASSERT_TRUE(spinUntil([this] { return vm->recorder()->isBuffering(); }));
    }

    void TearDown() override
    {
        delegate.reset();
        services.reset();
    }

    // One clip through the tray's menu: start, a second of recording, save.
    QString saveClipFromTheTray()
    {
        const std::optional<QString> before = vm->status()->lastSavedURL();
        delegate->tray()->saveItem()->trigger();
        if (!spinUntil([this] { return vm->recorder()->isRecording(); })) return {};
        spinFor(1200);
        delegate->tray()->saveItem()->trigger();
        if (!spinUntil([&] { return vm->status()->lastSavedURL() && vm->status()->lastSavedURL() != before; }, 30000))
            return {};
        return *vm->status()->lastSavedURL();
    }

    // The icon the tray host is given, read the way the host reads it: the item's IconPixmap
    // property, every size's ARGB bytes one after another.
    QByteArray trayIconBytes()
    {
        const QStringList items = services->trayItems();
        if (items.isEmpty()) return {};
        QDBusMessage get = QDBusMessage::createMethodCall(items.last(), QStringLiteral("/StatusNotifierItem"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QStringLiteral("org.kde.StatusNotifierItem") << QStringLiteral("IconPixmap");
        // The item answers from this thread: the loop runs while the call waits.
        QDBusPendingCall pending = services->connection().asyncCall(get);
        if (!spinUntil([&] { return pending.isFinished(); }, 5000) || pending.isError()) return {};
        const QDBusArgument pixmaps
            = pending.reply().arguments().value(0).value<QDBusVariant>().variant().value<QDBusArgument>();
        QByteArray bytes;
        pixmaps.beginArray();
        while (!pixmaps.atEnd()) {
            int width = 0;
            int height = 0;
            QByteArray data;
            pixmaps.beginStructure();
            pixmaps >> width >> height >> data;
            pixmaps.endStructure();
            bytes += data;
        }
        pixmaps.endArray();
        return bytes;
    }

    QTemporaryDir home;
    QTemporaryDir clips;
    std::unique_ptr<DesktopServices> services;
    std::unique_ptr<AppDelegate> delegate;
    RecorderViewModel* vm = nullptr;
};

} // namespace

TEST_F(DesktopPresence, TheTrayShowsWhatTheRecorderDoesAndItsMenuSavesAClip)
{
    TrayMenu* tray = delegate->tray();
    ASSERT_TRUE(tray->isShown());
    ASSERT_TRUE(spinUntil([this] { return !services->trayItems().isEmpty(); }, 5000))
        << "the icon never registered with the tray host";
    EXPECT_EQ(tray->state(), SystemTray::State::buffering);
    const QByteArray buffering = trayIconBytes();
    ASSERT_FALSE(buffering.isEmpty());
    EXPECT_TRUE(tray->saveItem()->text().startsWith(QStringLiteral("Start recording\t")));

    tray->saveItem()->trigger();
    ASSERT_TRUE(spinUntil([this] { return vm->recorder()->isRecording(); }));
    EXPECT_EQ(tray->state(), SystemTray::State::recording);
    EXPECT_TRUE(tray->saveItem()->text().startsWith(QStringLiteral("Save clip\t")));
    ASSERT_TRUE(spinUntil([&] { return trayIconBytes() != buffering; }, 5000))
        << "the host still has the buffering icon while recording";

    spinFor(1200);
    tray->saveItem()->trigger();
    ASSERT_TRUE(spinUntil([this] { return vm->status()->lastSavedURL().has_value(); }, 30000));
    const QString clip = *vm->status()->lastSavedURL();
    EXPECT_TRUE(QFileInfo(clip).absolutePath() == QDir(clips.path()).absolutePath());
    EXPECT_GT(QFileInfo(clip).size(), 1000);
    ASSERT_TRUE(spinUntil([&] { return tray->state() == SystemTray::State::buffering; }));
    EXPECT_EQ(trayIconBytes(), buffering);
    // The window is in front: its toast says it, and no notification repeats it.
    spinFor(500);
    EXPECT_TRUE(services->notifications().empty());
}

TEST_F(DesktopPresence, ClosedIntoTheTrayASavedClipIsNotifiedAndShownInItsFolder)
{
    QMainWindow* window = delegate->window();
    ASSERT_TRUE(delegate->tray()->isShown());
    window->close();
    ASSERT_TRUE(spinUntil([&] { return !window->isVisible(); }, 5000));
    // Hidden in the tray, the recorder keeps its ring.
    EXPECT_TRUE(vm->engine()->isStreaming());
    EXPECT_TRUE(vm->recorder()->isBuffering());

    const QString clip = saveClipFromTheTray();
    ASSERT_FALSE(clip.isEmpty());
    ASSERT_TRUE(spinUntil([this] { return !services->notifications().empty(); }, 5000));
    spinFor(300);
    const std::vector<DesktopServices::Notification> sent = services->notifications();
    ASSERT_EQ(sent.size(), 1u);
    const DesktopServices::Notification& saved = sent.front();
    EXPECT_EQ(saved.summary, QStringLiteral("Saved: ") + QFileInfo(clip).fileName());
    EXPECT_EQ(saved.appName, QStringLiteral("Velotape"));
    EXPECT_EQ(
        saved.hints.value(QStringLiteral("desktop-entry")).toString(), QStringLiteral("io.github.velotape.Velotape"));
    ASSERT_EQ(saved.actions.size(), 4);
    EXPECT_EQ(saved.actions[1], QStringLiteral("Open"));
    EXPECT_EQ(saved.actions[3], QStringLiteral("Show in Folder"));

    services->invokeAction(saved.id, saved.actions[2]);
    ASSERT_TRUE(spinUntil([this] { return !services->shownItems().isEmpty(); }, 5000))
        << "the file manager was never asked";
    EXPECT_EQ(services->shownItems(), QStringList { QUrl::fromLocalFile(clip).toString() });
    // A second press of a button that is gone does nothing.
    services->invokeAction(saved.id, saved.actions[2]);
    spinFor(300);
    EXPECT_EQ(services->shownItems().size(), 1);

    // With the notification daemon gone, a save is still a save, and the recorder goes on.
    services->stopNotifications();
    const QString second = saveClipFromTheTray();
    ASSERT_FALSE(second.isEmpty());
    EXPECT_GT(QFileInfo(second).size(), 1000);
    EXPECT_EQ(services->notifications().size(), 1u);
    EXPECT_TRUE(vm->recorder()->isBuffering());

    // "Show Velotape" brings the window back.
    delegate->tray()->showItem()->trigger();
    ASSERT_TRUE(spinUntil([&] { return window->isVisible(); }, 5000));
    EXPECT_TRUE(delegate->isWindowSeen());
}

// The installed program as a session starts it: the real binary on the test's display and bus.
namespace {

class DesktopProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(testSessionBus(), nullptr);
        QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
        env.insert(QStringLiteral("TMPDIR"), runtime.path());
        // Clips into a folder of this test's own; no sound.
        QSettings settings(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")), QSettings::NativeFormat);
        settings.setValue(QStringLiteral("vt2.savePath"), clips.path());
        settings.setValue(QStringLiteral("vt2.playSound"), false);
        settings.setValue(QStringLiteral("vt2.bufferSeconds"), 3);
        settings.sync();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        velotape.setProcessEnvironment(env);
    }

    void TearDown() override
    {
        if (velotape.state() != QProcess::NotRunning) {
            velotape.terminate();
            if (!velotape.waitForFinished(10000)) velotape.kill();
        }
    }

    // `velotape COMMAND` against the running instance; its exit code.
    int control(const QString& command, QString* out = nullptr)
    {
        QProcess client;
        client.setProcessEnvironment(env);
        client.start(QStringLiteral(VELOTAPE_BINARY), { command });
        if (!client.waitForFinished(10000)) return -1;
        if (out) *out = QString::fromUtf8(client.readAllStandardOutput());
        return client.exitCode();
    }

    // The top-level windows titled Velotape on the display (only the mapped ones with `visibleOnly`).
    int velotapeWindows(bool visibleOnly)
    {
        QStringList args { QStringLiteral("search") };
        if (visibleOnly) args << QStringLiteral("--onlyvisible");
        args << QStringLiteral("--name") << QStringLiteral("^Velotape$");
        QString out;
        testDesktop()->run(QStringLiteral("xdotool"), args, &out);
        return int(out.split(u'\n', Qt::SkipEmptyParts).size());
    }

    bool answers()
    {
        return spinUntil([this] { return control(QStringLiteral("status")) == 0; }, 20000);
    }

    QTemporaryDir runtime;
    QTemporaryDir home;
    QTemporaryDir clips;
    QProcessEnvironment env;
    QProcess velotape;
};

} // namespace

TEST_F(DesktopProcess, ClosedWithATrayTheWindowHidesAndTheRecorderGoesOn)
{
    DesktopServices services(testSessionBus()->address());
    ASSERT_TRUE(services.error().isEmpty()) << qPrintable(services.error());
    velotape.start(QStringLiteral(VELOTAPE_BINARY), {});
    ASSERT_TRUE(velotape.waitForStarted());
    ASSERT_TRUE(answers());
    ASSERT_TRUE(spinUntil([&] { return !services.trayItems().isEmpty(); }, 10000)) << "no tray icon";
    ASSERT_TRUE(spinUntil([&] { return velotapeWindows(true) == 1; }, 10000));

    // Ctrl+W, as a user closes it.
    QString out;
    ASSERT_EQ(testDesktop()->run(QStringLiteral("xdotool"),
                  { QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                      QStringLiteral("^Velotape$"), QStringLiteral("windowfocus"), QStringLiteral("--sync"),
                      QStringLiteral("key"), QStringLiteral("ctrl+w") },
                  &out),
        0);
    ASSERT_TRUE(spinUntil([&] { return velotapeWindows(true) == 0; }, 10000)) << "the window is still up";
    spinFor(1000);
    EXPECT_EQ(velotape.state(), QProcess::Running);
    EXPECT_EQ(control(QStringLiteral("status")), 0);

    velotape.terminate();
    ASSERT_TRUE(velotape.waitForFinished(15000));
    EXPECT_EQ(velotape.exitCode(), 0) << velotape.readAllStandardError().toStdString();
}

TEST_F(DesktopProcess, StartedInTheBackgroundItIsHiddenInTheTrayOrHeadlessWithoutOne)
{
    {
        DesktopServices services(testSessionBus()->address());
        ASSERT_TRUE(services.error().isEmpty()) << qPrintable(services.error());
        velotape.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--background") });
        ASSERT_TRUE(velotape.waitForStarted());
        ASSERT_TRUE(answers());
        ASSERT_TRUE(spinUntil([&] { return !services.trayItems().isEmpty(); }, 10000)) << "no tray icon";
        // The window exists, for the tray's "Show Velotape", but nothing of it is on the screen.
        EXPECT_GE(velotapeWindows(false), 1);
        spinFor(500);
        EXPECT_EQ(velotapeWindows(true), 0);
        velotape.terminate();
        ASSERT_TRUE(velotape.waitForFinished(15000));
    }

    // No tray: the headless instance, which tells what it does on standard output and as
    // notifications, and a clip saved there is announced with its name.
    DesktopServices services(testSessionBus()->address(), false);
    ASSERT_TRUE(services.error().isEmpty()) << qPrintable(services.error());
    velotape.start(QStringLiteral(VELOTAPE_BINARY), { QStringLiteral("--background") });
    ASSERT_TRUE(velotape.waitForStarted());
    ASSERT_TRUE(answers());
    EXPECT_EQ(velotapeWindows(false), 0);
    ASSERT_TRUE(spinUntil(
        [&] {
            QString status;
            control(QStringLiteral("status"), &status);
            return status.contains(QStringLiteral("buffering"));
        },
        20000));
    ASSERT_EQ(control(QStringLiteral("start")), 0);
    spinFor(1200);
    ASSERT_EQ(control(QStringLiteral("stop")), 0);
    ASSERT_TRUE(spinUntil([&] { return !services.notifications().empty(); }, 30000)) << "no notification";
    const DesktopServices::Notification saved = services.notifications().front();
    const QStringList written = QDir(clips.path()).entryList({ QStringLiteral("*.mp4") }, QDir::Files);
    ASSERT_EQ(written.size(), 1);
    EXPECT_EQ(saved.summary, QStringLiteral("Saved: ") + written.front());
    EXPECT_EQ(saved.actions.size(), 4);
    // The line on standard output stays.
    QString printed;
    EXPECT_TRUE(spinUntil(
        [&] {
            printed += QString::fromUtf8(velotape.readAllStandardOutput());
            return printed.contains(QStringLiteral("Saved: ") + written.front());
        },
        5000))
        << qPrintable(printed);
}

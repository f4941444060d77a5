#include "DesktopServices.h"
#include "DesktopTestMain.h"
#include "LaunchedWindow.h"
#include "app/AppSettings.h"
#include "app/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"
#include "support/SessionBus.h"
#include "ui/AppDelegate.h"
#include "ui/TrayMenu.h"

#include <QAction>
#include <QDBusArgument>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QMainWindow>
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
        const std::optional<QString> before = vm->lastSavedURL();
        delegate->tray()->saveItem()->trigger();
        if (!spinUntil([this] { return vm->recorder()->isRecording(); })) return {};
        spinFor(1200);
        delegate->tray()->saveItem()->trigger();
        if (!spinUntil([&] { return vm->lastSavedURL() && vm->lastSavedURL() != before; }, 30000)) return {};
        return *vm->lastSavedURL();
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
    ASSERT_TRUE(spinUntil([this] { return vm->lastSavedURL().has_value(); }, 30000));
    const QString clip = *vm->lastSavedURL();
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

#include "ui/AppDelegate.h"

#include "app/AppIdentity.h"
#include "app/AppSettings.h"
#include "app/UpdateChecker.h"
#include "app/hotkeys/HotkeyRecorder.h"
#include "app/session/EventNotifications.h"
#include "app/session/OwnWindowTracker.h"
#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "core/Publisher.h"
#include "platform/DesktopNotifications.h"
#include "platform/Platform.h"
#include "ui/ContentView.h"
#include "ui/TrayMenu.h"

#include <QApplication>
#include <QCloseEvent>
#include <QEvent>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>

namespace {

// The window, telling its owner when it is minimised or restored: the one change of visibility
// every platform reports, whether or not it can tell a covered window. Closed while the recorder
// lives on in the tray, it only hides.
class MainWindow : public QMainWindow {
public:
    std::function<void(bool minimised)> onMinimisedChanged;
    std::function<bool()> hidesOnClose;
    std::function<void()> onHiddenOnClose;

protected:
    void closeEvent(QCloseEvent* event) override
    {
        if (!hidesOnClose || !hidesOnClose()) {
            QMainWindow::closeEvent(event);
            return;
        }
        event->ignore();
        hide();
        if (onHiddenOnClose) onHiddenOnClose();
    }

    void changeEvent(QEvent* event) override
    {
        QMainWindow::changeEvent(event);
        if (event->type() == QEvent::WindowStateChange && onMinimisedChanged) onMinimisedChanged(isMinimized());
    }
};

} // namespace

AppDelegate::AppDelegate(AppSession::Options options, std::unique_ptr<Platform> platform, QObject* parent)
    : QObject(parent)
    , session(std::make_unique<AppSession>(std::move(options),
          platform ? std::move(platform) : std::make_unique<Platform>(Platform::backendForThisSession({}))))
{
}

AppDelegate::~AppDelegate()
{
    // The window, its screens, the tray and the notifications observe the controller: they go
    // before the session does.
    notifications.reset();
    trayMenu.reset();
    visibility.reset();
    mainWindow.reset();
    session.reset();
}

bool AppDelegate::applicationDidFinishLaunching(QString* error)
{
    if (!session->start(error)) return false;

    updater = std::make_unique<UpdateChecker>(UpdateChecker::configuredFeed(), QCoreApplication::applicationVersion());
    updater->onNewerRelease = [this](const UpdateChecker::Release& release) {
        viewModel()->showToast(
            QStringLiteral("Velotape %1 is available: %2").arg(release.version, release.link.toString()));
    };
    updater->start();

    auto* window = new MainWindow;
    mainWindow.reset(window);
    content = new ContentView(viewModel()->models());
    window->setCentralWidget(content);
    window->setWindowTitle(QStringLiteral("Velotape"));
    window->setMinimumSize(minimumWindowSize);
    window->resize(windowSize);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - QPoint(windowSize.width() / 2, windowSize.height() / 2));
    buildMainMenu();
    // On X11 a display capture sees this window: its repaints must not pass for screen changes.
    ownWindows = std::make_unique<OwnWindowTracker>(
        [engine = viewModel()->engine()](std::vector<uint32_t> ids) { engine->setOwnWindows(std::move(ids)); });

    trayMenu = std::make_unique<TrayMenu>(viewModel()->models(), session->platform().systemTray());
    trayMenu->onShowWindow = [this] { showWindow(); };
    trayMenu->onQuit = [this] { quit(); };
    const bool inTray = trayMenu->show();
    window->hidesOnClose
        = [this] { return !quitting && trayMenu->isShown() && viewModel()->settings()->keepRunningInTray(); };
    window->onHiddenOnClose = [this] { windowVisibilityChanged(false); };
    notifications = std::make_unique<EventNotifications>(viewModel()->models(),
        session->platform().notifications(AppIdentity::appId()), [this] { return isWindowSeen(); });

    if (startHidden && inTray)
        windowVisibilityChanged(false);
    else
        window->show();

    window->onMinimisedChanged = [this](bool minimised) { windowVisibilityChanged(!minimised); };
    visibility = session->platform().watchWindowVisibility(
        uintptr_t(window->winId()), [this](bool shown) { windowVisibilityChanged(shown); });
    return true;
}

void AppDelegate::buildMainMenu()
{
    QMenuBar* bar = mainWindow->menuBar();
    // Linux has no application menu: its items open a menu named after the application.
    QMenu* app = bar->addMenu(QStringLiteral("Velotape"));
    app->addAction(QStringLiteral("About Velotape"), this, [this] {
        QMessageBox::about(mainWindow.get(), QStringLiteral("About Velotape"),
            QStringLiteral("<b>Velotape %1</b><p>Always already recording: the last seconds of your screen, "
                           "saved with one key.</p>")
                .arg(QCoreApplication::applicationVersion()));
    });
    app->addSeparator();
    // An X11 application can't hide itself as a whole: its window goes down to the taskbar, from
    // where the user brings it back, and the ring keeps buffering behind it.
    QAction* hide = app->addAction(QStringLiteral("Hide Velotape"), mainWindow.get(), &QWidget::showMinimized);
    hide->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_H));
    QAction* quitItem = app->addAction(QStringLiteral("Quit Velotape"), this, &AppDelegate::quit);
    quitItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    QMenu* file = bar->addMenu(QStringLiteral("File"));
    recordItem = file->addAction(QStringLiteral("Start Recording"), this, &AppDelegate::menuToggleRecording);
    showSaveHotkeyInMenu();
    observe(session->viewModel()->settings(), &AppSettings::saveHotkey, &AppSettings::saveHotkeyChanged)
        .dropFirst()
        .sink(this, [this](const HotkeyBinding&) { showSaveHotkeyInMenu(); });

    QMenu* windowMenu = bar->addMenu(QStringLiteral("Window"));
    QAction* minimise = windowMenu->addAction(QStringLiteral("Minimize"), mainWindow.get(), &QWidget::showMinimized);
    minimise->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    windowMenu->addAction(QStringLiteral("Zoom"), this, [this] {
        if (mainWindow->isMaximized())
            mainWindow->showNormal();
        else
            mainWindow->showMaximized();
    });
    QAction* close = windowMenu->addAction(QStringLiteral("Close"), mainWindow.get(), &QWidget::close);
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
}

void AppDelegate::showSaveHotkeyInMenu()
{
    // The hotkey is heard by the hotkey monitors, inside the window and out: the menu only shows it,
    // after a tab, so that one press never toggles twice.
    const HotkeyBinding binding = session->viewModel()->settings()->saveHotkey();
    const bool shown = binding.enabled && !binding.keyChar.isEmpty();
    recordItem->setText(shown ? QStringLiteral("Start Recording\t%1").arg(HotkeyRecorder::bindingText(binding))
                              : QStringLiteral("Start Recording"));
}

void AppDelegate::menuToggleRecording()
{
    viewModel()->toggleRecording();
}

bool AppDelegate::isWindowSeen() const
{
    return mainWindow && mainWindow->isVisible() && !mainWindow->isMinimized() && visible;
}

void AppDelegate::showWindow()
{
    if (mainWindow->isMinimized())
        mainWindow->showNormal();
    else
        mainWindow->show();
    mainWindow->raise();
    mainWindow->activateWindow();
    windowVisibilityChanged(true);
}

void AppDelegate::quit()
{
    quitting = true;
    // With the window on the screen, closing it ends the program as it always has; hidden in the
    // tray, there is no window left to close.
    if (mainWindow->isVisible())
        QApplication::closeAllWindows();
    else
        QCoreApplication::quit();
}

void AppDelegate::windowVisibilityChanged(bool shown)
{
    if (shown == visible) return;
    visible = shown;
    viewModel()->setWindowSeen(shown);
}

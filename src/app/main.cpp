#include "app/AppIdentity.h"
#include "app/cli/DetectCommand.h"
#include "app/cli/JournalCommand.h"
#include "app/client/CommandLine.h"
#include "app/client/ControlClient.h"
#include "app/session/AppSession.h"
#include "platform/Platform.h"
#include "platform/SystemTray.h"
#include "ui/AppDelegate.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QSocketNotifier>
#include <QTextStream>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

// Signals quit the way Quit does: the event loop ends, a running recording is saved, and the
// session's teardown removes the ring and the socket file. A second signal ends the process at once,
// for whoever does not want to wait for the save.
int signalPipe[2] = { -1, -1 };
std::atomic<int> signalsSeen = 0;
static_assert(std::atomic<int>::is_always_lock_free, "counted in a signal handler");

void onQuitSignal(int number)
{
    if (signalsSeen.fetch_add(1) > 0) {
        ::signal(number, SIG_DFL);
        ::raise(number);
        return;
    }
    char c = 1;
    [[maybe_unused]] auto n = ::write(signalPipe[0], &c, 1);
}

void quitOnSignals(QCoreApplication& app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] {
        char c;
        [[maybe_unused]] auto n = ::read(signalPipe[1], &c, 1);
        QCoreApplication::quit();
    });
    struct sigaction action { };
    action.sa_handler = onQuitSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : { SIGINT, SIGTERM, SIGHUP })
        ::sigaction(number, &action, nullptr);
}

// The session of this process, while it runs. Qt ends the process with exit() when the X server
// goes away, from inside the event loop: no stack unwinds, so the clip being recorded is saved and
// the session closed from an exit handler instead.
AppSession* runningSession = nullptr;

void closeSessionOnExit()
{
    if (AppSession* session = std::exchange(runningSession, nullptr)) session->closeForExit();
}

// Called once the session has started, so that whatever it started before (the thread pool, the
// backends' statics) is torn down only after this handler has run.
void watchForExit(AppSession* session)
{
    static const bool registered = std::atexit(closeSessionOnExit) == 0;
    if (registered) runningSession = session;
}

// The event loop has ended: the recording that runs is saved before the session goes.
int endSession(AppSession* session, int status)
{
    runningSession = nullptr;
    session->saveBeforeQuit();
    return status;
}

int runSession(QCoreApplication& app, AppSession::Options options, std::unique_ptr<Platform> platform)
{
    quitOnSignals(app);
    AppSession session(std::move(options), std::move(platform));
    QString error;
    if (!session.start(&error)) {
        std::fprintf(stderr, "velotape: %s\n", qPrintable(error));
        return 1;
    }
    watchForExit(&session);
    return endSession(&session, app.exec());
}

std::unique_ptr<Platform> platformFor(const Invocation& invocation)
{
    return std::make_unique<Platform>(Platform::backendForThisSession(Platform::backendNamed(invocation.backend)));
}

int runHeadless(int argc, char** argv, const Invocation& invocation)
{
    const AppSession::Options options { .headless = true, .source = invocation.source, .socketPath = {} };
    std::unique_ptr<Platform> platform = platformFor(invocation);
    // No window, but on an X display the area picker and the armed frame still show, and they are
    // windows: the application then speaks to the display too.
    const QByteArray qpa = qgetenv("QT_QPA_PLATFORM");
    if (platform->backend() == Platform::Backend::x11 && (qpa.isEmpty() || qpa == "xcb")
        && platform->hasOverlayDisplay()) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        QGuiApplication app(argc, argv);
        app.setQuitOnLastWindowClosed(false);
        return runSession(app, options, std::move(platform));
    }
    // On a Wayland compositor with the layer shell the armed frame is a surface of the platform's
    // own, but painted with Qt's fonts, which need a GUI application, though on no display of Qt's.
    if (platform->backend() == Platform::Backend::wayland && platform->hasOverlayDisplay()) {
        if (qpa.isEmpty()) qputenv("QT_QPA_PLATFORM", "offscreen");
        QGuiApplication app(argc, argv);
        app.setQuitOnLastWindowClosed(false);
        return runSession(app, options, std::move(platform));
    }
    QCoreApplication app(argc, argv);
    return runSession(app, options, std::move(platform));
}

int runWindow(int argc, char** argv, const Invocation& invocation)
{
    // Without a display Qt would abort with a long plug-in message; say it in one line instead.
    if (!hasDisplay()) {
        std::fprintf(stderr,
            "velotape: no display found (DISPLAY and WAYLAND_DISPLAY are unset); "
            "use 'velotape --headless' to run without a window\n");
        return 1;
    }
    std::unique_ptr<Platform> platform = platformFor(invocation);
    // The X11 backend captures, watches and draws over the X display: its window must be an X window
    // too, also where Qt would pick another platform (XWayland).
    if (platform->backend() == Platform::Backend::x11 && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")
        && !qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    // Started with the session where the desktop has no tray: nothing could bring a hidden
    // window back, so it runs as the headless instance does.
    if (invocation.background && !platform->systemTray()->isAvailable()) {
        app.setQuitOnLastWindowClosed(false);
        return runSession(app, AppSession::Options { .headless = true, .source = invocation.source, .socketPath = {} },
            std::move(platform));
    }
    quitOnSignals(app);
    AppDelegate delegate(
        AppSession::Options { .headless = false, .source = invocation.source, .socketPath = {} }, std::move(platform));
    delegate.setStartHidden(invocation.background);
    QString error;
    if (!delegate.applicationDidFinishLaunching(&error)) {
        std::fprintf(stderr, "velotape: %s\n", qPrintable(error));
        return 1;
    }
    watchForExit(delegate.appSession());
    return endSession(delegate.appSession(), app.exec());
}

// A descriptor of 0, 1 or 2 that was closed when the process started would be handed to the next
// file opened, the X connection say, and every line printed would then go into it: each closed one
// is opened on /dev/null before anything else opens a file.
void keepStandardStreamsOpen()
{
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
        // The lowest free descriptor is taken, and those below this one are open by now.
        const int opened = ::open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
        if (opened >= 0 && opened != fd) {
            ::dup2(opened, fd);
            ::close(opened);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    keepStandardStreamsOpen();
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELOTAPE_VERSION));
    // The desktop finds our entry, icon and notifications' sender by it.
    QGuiApplication::setDesktopFileName(AppIdentity::appId());

    const Invocation invocation = CommandLine::parse(CommandLine::arguments(argc, argv));
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (const std::optional<int> status = CommandLine::answerAtOnce(invocation, VELOTAPE_VERSION, out, err))
        return *status;

    switch (invocation.kind) {
    case Invocation::Kind::control: {
        QCoreApplication app(argc, argv);
        return ControlClient::sendToOwnInstance(invocation.command, out, err);
    }
    case Invocation::Kind::journal: {
        QCoreApplication app(argc, argv);
        return runJournalCommand(invocation.command, out, err);
    }
    case Invocation::Kind::detect: {
        QCoreApplication app(argc, argv);
        return runDetectCommand(invocation.command, out, err, platformFor(invocation)->textRecognizers());
    }
    case Invocation::Kind::headless:
        return runHeadless(argc, argv, invocation);
    case Invocation::Kind::window:
        return runWindow(argc, argv, invocation);
    case Invocation::Kind::help:
    case Invocation::Kind::version:
    case Invocation::Kind::invalid:
        break; // answered above
    }
    return 2;
}

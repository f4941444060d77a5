#include "app/AppIdentity.h"
#include "app/cli/CommandLine.h"
#include "app/cli/DetectCommand.h"
#include "app/cli/JournalCommand.h"
#include "app/control/ControlClient.h"
#include "app/control/ControlSocketPath.h"
#include "app/session/AppSession.h"
#include "platform/Platform.h"
#include "platform/SystemTray.h"
#include "ui/AppDelegate.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QSocketNotifier>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

QStringList argumentsOf(int argc, char** argv)
{
    QStringList out;
    for (int i = 1; i < argc; ++i)
        out << QString::fromLocal8Bit(argv[i]);
    return out;
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

// SIGINT and SIGTERM end the event loop, so that the segment folder is removed on the way out.
int signalPipe[2] = { -1, -1 };

void quitOnSignals(QCoreApplication& app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] {
        char c;
        [[maybe_unused]] auto n = ::read(signalPipe[1], &c, 1);
        QCoreApplication::quit();
    });
    struct sigaction action { };
    action.sa_handler = [](int) {
        char c = 1;
        [[maybe_unused]] auto n = ::write(signalPipe[0], &c, 1);
    };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
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
    return app.exec();
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
    if ((qpa.isEmpty() || qpa == "xcb") && platform->hasOverlayDisplay()) {
        qputenv("QT_QPA_PLATFORM", "xcb");
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
    return app.exec();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELOTAPE_VERSION));
    // The desktop finds our entry, icon and notifications' sender by it.
    QGuiApplication::setDesktopFileName(AppIdentity::appId());

    const Invocation invocation = CommandLine::parse(argumentsOf(argc, argv));
    QTextStream out(stdout);
    QTextStream err(stderr);

    switch (invocation.kind) {
    case Invocation::Kind::help:
        out << CommandLine::usage();
        return 0;
    case Invocation::Kind::version:
        out << "velotape " << VELOTAPE_VERSION << '\n';
        return 0;
    case Invocation::Kind::invalid:
        err << "velotape: " << invocation.error << "\n\n" << CommandLine::usage();
        return 2;
    case Invocation::Kind::control: {
        QCoreApplication app(argc, argv);
        const ControlSocketPath::Location socket = ControlSocketPath::forThisUser(false);
        if (!socket.error.isEmpty()) {
            err << "velotape: " << socket.error << '\n';
            return 1;
        }
        return ControlClient::send(socket.path, invocation.command, out, err);
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
    }
    return 2;
}

#include "support/TestDesktop.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <xcb/xcb.h>

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

// Children must not outlive a crashed test.
void dieWithParent(QProcess& process)
{
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

std::optional<QByteArray> saveEnv(const char* name)
{
    if (!qEnvironmentVariableIsSet(name)) return std::nullopt;
    return qgetenv(name);
}

void restoreEnv(const char* name, const std::optional<QByteArray>& value)
{
    if (value)
        qputenv(name, *value);
    else
        qunsetenv(name);
}

bool waitFor(const std::function<bool()>& condition, int timeoutMs)
{
    for (int waited = 0; waited < timeoutMs; waited += 20) {
        if (condition()) return true;
        QThread::msleep(20);
    }
    return condition();
}

} // namespace

TestDesktop::TestDesktop() = default;

TestDesktop::~TestDesktop()
{
    stop();
}

QString TestDesktop::runtimeDir() const
{
    return dir ? dir->path() : QString();
}

QString TestDesktop::start(const Options& options)
{
    stop();
    dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/velotape-desktop-XXXXXX"));
    if (!dir->isValid()) return QStringLiteral("cannot make a runtime directory");
    QFile::setPermissions(dir->path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    savedDisplay = saveEnv("DISPLAY");
    savedPulseServer = saveEnv("PULSE_SERVER");
    if (QString error = startX(options); !error.isEmpty()) {
        stop();
        return error;
    }
    if (options.audio) {
        if (QString error = startPulse(); !error.isEmpty()) {
            stop();
            return error;
        }
    }
    return {};
}

QString TestDesktop::startX(const Options& options)
{
    if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty())
        return QStringLiteral("Xvfb is not installed");
    int fds[2];
    if (::pipe(fds) != 0) return QStringLiteral("pipe failed");
    xvfb = std::make_unique<QProcess>();
    const int writeFd = fds[1];
    xvfb->setChildProcessModifier([writeFd, readFd = fds[0]] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(readFd);
    });
    xvfb->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList arguments { QStringLiteral("-displayfd"), QString::number(writeFd), QStringLiteral("-screen"),
        QStringLiteral("0"), QStringLiteral("%1x%2x24").arg(options.width).arg(options.height),
        QStringLiteral("-nolisten"), QStringLiteral("tcp"), QStringLiteral("+extension"), QStringLiteral("RANDR"),
        QStringLiteral("-noreset") };
    if (!options.sharedMemory) arguments << QStringLiteral("-extension") << QStringLiteral("MIT-SHM");
    xvfb->start(QStringLiteral("Xvfb"), arguments);
    ::close(writeFd);
    if (!xvfb->waitForStarted(5000)) {
        ::close(fds[0]);
        return QStringLiteral("Xvfb did not start");
    }
    // Xvfb writes the display number it chose, then a newline, once it accepts connections.
    QByteArray number;
    char c;
    while (::read(fds[0], &c, 1) == 1 && c != '\n')
        number.append(c);
    ::close(fds[0]);
    if (number.isEmpty()) return QStringLiteral("Xvfb did not report a display number");
    displayName = QStringLiteral(":") + QString::fromLatin1(number);
    qputenv("DISPLAY", displayName.toLatin1());

    if (options.windowManager) {
        // Now and then openbox here leaves a map request unanswered (the window stays unmapped and
        // is never reparented; not seen from a shell, not understood yet). Ready means a window of
        // ours gets shown; if it does not, openbox is started again.
        QString failure;
        for (int attempt = 0; attempt < 3; ++attempt) {
            failure = startWindowManager();
            if (failure.isEmpty()) break;
            windowManager->kill();
            windowManager->waitForFinished(2000);
        }
        if (!failure.isEmpty()) return failure;
    }
    return {};
}

QString TestDesktop::startWindowManager()
{
    windowManager = std::make_unique<QProcess>();
    dieWithParent(*windowManager);
    windowManager->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    windowManager->start(QStringLiteral("openbox"), { QStringLiteral("--sm-disable") });
    if (!windowManager->waitForStarted(5000)) return QStringLiteral("openbox did not start");
    // openbox claims the EWMH supporting window on the root early in its start-up.
    const bool claimed = waitFor(
        [this] {
            QString out;
            return run(QStringLiteral("xprop"), { QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK") },
                       &out)
                == 0
                && out.contains(QStringLiteral("window id"));
        },
        5000);
    if (!claimed) return QStringLiteral("openbox did not take the display");
    if (!windowManagerShowsWindows()) return QStringLiteral("openbox does not show windows");
    return {};
}

bool TestDesktop::windowManagerShowsWindows() const
{
    xcb_connection_t* connection = xcb_connect(displayName.toLatin1().constData(), nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return false;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_window_t probe = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, probe, screen->root, 0, 0, 10, 10, 0,
        XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    xcb_map_window(connection, probe);
    xcb_flush(connection);
    const bool shown = waitFor(
        [&] {
            xcb_get_window_attributes_reply_t* attributes
                = xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, probe), nullptr);
            const bool viewable = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
            std::free(attributes);
            return viewable;
        },
        4000);
    xcb_destroy_window(connection, probe);
    xcb_disconnect(connection);
    return shown;
}

QString TestDesktop::startPulse()
{
    if (QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty())
        return QStringLiteral("pulseaudio is not installed");
    const QString socket = dir->path() + QStringLiteral("/pulse/native");
    QDir().mkpath(dir->path() + QStringLiteral("/pulse"));
    QFile script(dir->path() + QStringLiteral("/default.pa"));
    if (!script.open(QIODevice::WriteOnly)) return QStringLiteral("cannot write the PulseAudio script");
    script.write(QStringLiteral("load-module module-native-protocol-unix auth-anonymous=1 socket=%1\n"
                                "load-module module-null-sink sink_name=vsink rate=48000 channels=2\n"
                                "load-module module-sine-source source_name=vmic rate=44100 frequency=440\n"
                                "set-default-sink vsink\n"
                                "set-default-source vmic\n")
                     .arg(socket)
                     .toUtf8());
    script.close();

    pulse = std::make_unique<QProcess>();
    dieWithParent(*pulse);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir->path());
    env.insert(QStringLiteral("HOME"), dir->path());
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir->path() + QStringLiteral("/pulse"));
    env.insert(QStringLiteral("PULSE_STATE_PATH"), dir->path() + QStringLiteral("/pulse"));
    pulse->setProcessEnvironment(env);
    pulse->setProcessChannelMode(QProcess::MergedChannels);
    pulse->setStandardOutputFile(dir->path() + QStringLiteral("/pulse.log"));
    pulse->start(QStringLiteral("pulseaudio"),
        { QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--disallow-exit"),
            QStringLiteral("--use-pid-file=no"), QStringLiteral("--system=no"), QStringLiteral("-n"),
            QStringLiteral("-F"), script.fileName() });
    if (!pulse->waitForStarted(5000)) return QStringLiteral("pulseaudio did not start");
    pulseAddress = QStringLiteral("unix:") + socket;
    qputenv("PULSE_SERVER", pulseAddress.toUtf8());
    const bool ready = waitFor([this] { return run(QStringLiteral("pactl"), { QStringLiteral("info") }) == 0; }, 10000);
    if (!ready) {
        QFile log(dir->path() + QStringLiteral("/pulse.log"));
        log.open(QIODevice::ReadOnly);
        return QStringLiteral("pulseaudio did not answer: ") + QString::fromUtf8(log.readAll()).trimmed();
    }
    return {};
}

void TestDesktop::stopDisplay()
{
    for (auto* p : { &windowManager, &xvfb }) {
        if (*p && (*p)->state() != QProcess::NotRunning) {
            (*p)->terminate();
            if (!(*p)->waitForFinished(3000)) {
                (*p)->kill();
                (*p)->waitForFinished(1000);
            }
        }
    }
}

QString TestDesktop::restartSound()
{
    if (!pulse) return QStringLiteral("no sound server runs");
    pulse->terminate();
    if (!pulse->waitForFinished(3000)) {
        pulse->kill();
        pulse->waitForFinished(1000);
    }
    return startPulse();
}

int TestDesktop::run(const QString& program, const QStringList& args, QString* out, int timeoutMs) const
{
    QProcess process;
    dieWithParent(process);
    process.start(program, args);
    if (!process.waitForStarted(5000)) return -1;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        return -1;
    }
    if (out) *out = QString::fromUtf8(process.readAllStandardOutput());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

void TestDesktop::stop()
{
    for (auto* p : { &pulse, &windowManager, &xvfb }) {
        if (*p && (*p)->state() != QProcess::NotRunning) {
            (*p)->terminate();
            if (!(*p)->waitForFinished(3000)) {
                (*p)->kill();
                (*p)->waitForFinished(1000);
            }
        }
        p->reset();
    }
    if (dir) {
        restoreEnv("DISPLAY", savedDisplay);
        restoreEnv("PULSE_SERVER", savedPulseServer);
    }
    displayName.clear();
    pulseAddress.clear();
    dir.reset();
}

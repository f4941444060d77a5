#include "support/WestonDesktop.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

WestonDesktop::WestonDesktop() = default;

WestonDesktop::~WestonDesktop()
{
    stop();
}

QString WestonDesktop::missingProgram()
{
    for (const QString& program : { QStringLiteral("weston"), QStringLiteral("weston-screenshooter") })
        if (QStandardPaths::findExecutable(program).isEmpty()) return program;
    return {};
}

QString WestonDesktop::start(const QProcessEnvironment& env, QSize outputSize)
{
    stop();
    if (const QString missing = missingProgram(); !missing.isEmpty())
        return missing + QStringLiteral(" is not installed");
    runEnv = env;
    runtimeDir = env.value(QStringLiteral("XDG_RUNTIME_DIR"));
    if (runtimeDir.isEmpty() || !QFileInfo(runtimeDir).isDir())
        return QStringLiteral("no runtime directory for weston");
    static std::atomic<int> started { 0 };
    socket = QStringLiteral("velotape-weston-%1-%2").arg(::getpid()).arg(++started);
    runEnv.remove(QStringLiteral("DISPLAY"));
    runEnv.remove(QStringLiteral("WAYLAND_DISPLAY"));
    const QString config = QDir(runtimeDir).filePath(socket + QStringLiteral(".ini"));
    QFile ini(config);
    if (!ini.open(QIODevice::WriteOnly)) return QStringLiteral("cannot write weston's settings");
    ini.write("[core]\nidle-time=0\n\n[shell]\npanel-position=none\nbackground-color=0xff606268\nlocking=false\n"
              "animation=none\nstartup-animation=none\n\n[input-method]\npath=\n");
    ini.close();
    weston = std::make_unique<QProcess>();
    weston->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    weston->setProcessEnvironment(runEnv);
    weston->setProcessChannelMode(QProcess::MergedChannels);
    weston->setStandardOutputFile(QDir(runtimeDir).filePath(socket + QStringLiteral(".log")));
    weston->start(QStringLiteral("weston"),
        { QStringLiteral("--backend=headless-backend.so"), QStringLiteral("--use-pixman"),
            QStringLiteral("--config=") + config, QStringLiteral("--socket=") + socket,
            QStringLiteral("--width=%1").arg(outputSize.width()),
            QStringLiteral("--height=%1").arg(outputSize.height()), QStringLiteral("--idle-time=0"),
            QStringLiteral("--debug") });
    if (!weston->waitForStarted(5000)) return QStringLiteral("weston does not start");
    const QString path = QDir(runtimeDir).filePath(socket);
    for (int waited = 0; waited < 10000; waited += 50) {
        if (QFileInfo::exists(path)) return {};
        if (weston->state() == QProcess::NotRunning) break;
        QThread::msleep(50);
    }
    QFile log(QDir(runtimeDir).filePath(socket + QStringLiteral(".log")));
    log.open(QIODevice::ReadOnly);
    return QStringLiteral("weston made no socket: ") + QString::fromLocal8Bit(log.readAll().right(600));
}

void WestonDesktop::stop()
{
    if (!weston) return;
    if (weston->state() != QProcess::NotRunning) {
        weston->terminate();
        if (!weston->waitForFinished(3000)) {
            weston->kill();
            weston->waitForFinished(1000);
        }
    }
    weston.reset();
}

QProcessEnvironment WestonDesktop::clientEnvironment(QProcessEnvironment env) const
{
    env.remove(QStringLiteral("DISPLAY"));
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), socket);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    // weston draws no decorations; Qt's own would only stand between the window and the pictures.
    env.insert(QStringLiteral("QT_WAYLAND_DISABLE_WINDOWDECORATION"), QStringLiteral("1"));
    return env;
}

std::optional<QImage> WestonDesktop::screenshot(QString* error) const
{
    QTemporaryDir into;
    QProcess shooter;
    shooter.setProcessEnvironment(clientEnvironment(runEnv));
    shooter.setWorkingDirectory(into.path());
    shooter.setProcessChannelMode(QProcess::MergedChannels);
    shooter.start(QStringLiteral("weston-screenshooter"), {});
    const bool finished = shooter.waitForFinished(10000);
    const QStringList files = QDir(into.path()).entryList({ QStringLiteral("*.png") }, QDir::Files);
    if (!finished || shooter.exitCode() != 0 || files.isEmpty()) {
        if (error)
            *error = QStringLiteral("weston-screenshooter: ") + QString::fromLocal8Bit(shooter.readAll()).trimmed();
        return std::nullopt;
    }
    QImage picture(QDir(into.path()).filePath(files.first()));
    if (picture.isNull()) {
        if (error) *error = QStringLiteral("weston-screenshooter wrote an unreadable picture");
        return std::nullopt;
    }
    return picture;
}

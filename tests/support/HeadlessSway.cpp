#include "support/HeadlessSway.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <pwd.h>
#include <unistd.h>

HeadlessSway::~HeadlessSway()
{
    stop();
}

QString HeadlessSway::missingProgram()
{
    for (const QString& program : { QStringLiteral("sway"), QStringLiteral("grim"), QStringLiteral("setpriv") })
        if (QStandardPaths::findExecutable(program).isEmpty()) return program;
    return {};
}

QString HeadlessSway::runtimeDir() const
{
    return dir ? dir->path() : QString();
}

QString HeadlessSway::start(const Options& options)
{
    stop();
    dir = std::make_unique<QTemporaryDir>();
    if (!dir->isValid()) return QStringLiteral("no temporary directory");
    QFile config(dir->filePath(QStringLiteral("config")));
    if (!config.open(QIODevice::WriteOnly)) return QStringLiteral("cannot write the compositor's configuration");
    config.write(QStringLiteral("output HEADLESS-1 resolution %1x%2 position 0 0 scale %3 bg %4 solid_color\n"
                                "default_border none\n")
                     .arg(options.size.width())
                     .arg(options.size.height())
                     .arg(options.scale)
                     .arg(options.background.name())
                     .toUtf8());
    config.close();

    QProcessEnvironment env;
    env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    env.insert(QStringLiteral("HOME"), dir->path());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir->path());
    env.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    env.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    env.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    QString program = QStringLiteral("sway");
    QStringList arguments { QStringLiteral("-c"), config.fileName() };
    if (geteuid() == 0) {
        const passwd* nobody = getpwnam("nobody");
        if (!nobody) return QStringLiteral("running as root, and there is no user 'nobody' to run sway as");
        if (chown(QFile::encodeName(dir->path()).constData(), nobody->pw_uid, nobody->pw_gid) != 0)
            return QStringLiteral("cannot hand the runtime directory to 'nobody'");
        arguments.prepend(program);
        arguments = QStringList { QStringLiteral("--reuid=%1").arg(nobody->pw_uid),
            QStringLiteral("--regid=%1").arg(nobody->pw_gid), QStringLiteral("--clear-groups"),
            // The compositor must not outlive a crashed test.
            QStringLiteral("--pdeathsig=KILL") }
            + arguments;
        program = QStringLiteral("setpriv");
    }
    sway = std::make_unique<QProcess>();
    sway->setProcessEnvironment(env);
    sway->setProcessChannelMode(QProcess::MergedChannels);
    sway->setStandardOutputFile(dir->filePath(QStringLiteral("sway.log")));
    sway->start(program, arguments);
    if (!sway->waitForStarted(5000)) return QStringLiteral("sway did not start");

    const auto log = [this] {
        QFile file(dir->filePath(QStringLiteral("sway.log")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 10000) {
        if (sway->state() != QProcess::Running) return QStringLiteral("sway ended: ") + log();
        const QStringList sockets
            = QDir(dir->path()).entryList({ QStringLiteral("wayland-*") }, QDir::System | QDir::NoDotAndDotDot);
        for (const QString& name : sockets)
            if (!name.endsWith(QLatin1String(".lock"))) socket = name;
        // Up once its output can be shot.
        if (!socket.isEmpty() && !screenshot().isNull()) return {};
        QThread::msleep(50);
    }
    return QStringLiteral("sway did not come up: ") + log();
}

void HeadlessSway::stop()
{
    if (sway && sway->state() != QProcess::NotRunning) {
        sway->terminate();
        if (!sway->waitForFinished(3000)) {
            sway->kill();
            sway->waitForFinished(3000);
        }
    }
    sway.reset();
    socket.clear();
    dir.reset();
}

qint64 HeadlessSway::pid() const
{
    // setpriv replaces itself with sway: the same process.
    return sway ? sway->processId() : 0;
}

QImage HeadlessSway::screenshot() const
{
    if (socket.isEmpty()) return {};
    QProcess grim;
    QProcessEnvironment env;
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir->path());
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), socket);
    grim.setProcessEnvironment(env);
    grim.start(QStringLiteral("grim"), { QStringLiteral("-t"), QStringLiteral("png"), QStringLiteral("-") });
    if (!grim.waitForFinished(5000) || grim.exitCode() != 0) return {};
    return QImage::fromData(grim.readAllStandardOutput(), "PNG").convertToFormat(QImage::Format_RGB32);
}

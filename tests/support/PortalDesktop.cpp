#include "support/PortalDesktop.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>

namespace {

const QString backendName = QStringLiteral("org.freedesktop.impl.portal.desktop.velotapetest");
const QString portalName = QStringLiteral("org.freedesktop.portal.Desktop");
const QString desktopName = QStringLiteral("velotapetest");

QString testBackend()
{
    return QStringLiteral(VELOTAPE_TEST_PORTAL);
}

QStringList requiredPrograms()
{
    return { QStringLiteral("dbus-daemon"), QStringLiteral("pipewire"), QStringLiteral("wireplumber"),
        QStringLiteral("pw-cli"), QStringLiteral("/usr/libexec/xdg-desktop-portal"),
        QStringLiteral("/usr/libexec/xdg-permission-store"), testBackend() };
}

bool writeFile(const QString& path, const QString& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return false;
    file.write(text.toUtf8());
    return true;
}

} // namespace

PortalDesktop::PortalDesktop() = default;

PortalDesktop::~PortalDesktop()
{
    stop();
}

QString PortalDesktop::missingProgram()
{
    for (const QString& program : requiredPrograms()) {
        const bool found = QDir::isAbsolutePath(program) ? QFileInfo(program).isExecutable()
                                                         : !QStandardPaths::findExecutable(program).isEmpty();
        if (!found) return program;
    }
    return {};
}

QString PortalDesktop::runtimeDir() const
{
    return dir ? dir->filePath(QStringLiteral("run")) : QString();
}

QProcess* PortalDesktop::launch(const QString& program, const QStringList& arguments, const QString& logName)
{
    auto process = std::make_unique<QProcess>();
    // The desktop must not outlive a crashed test.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process->setProcessEnvironment(env);
    if (!logName.isEmpty()) {
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setStandardOutputFile(dir->filePath(logName));
    }
    process->start(program, arguments);
    if (!process->waitForStarted(5000)) return nullptr;
    processes.push_back(std::move(process));
    return processes.back().get();
}

bool PortalDesktop::waitForName(const QString& name, int timeoutMs) const
{
    QDBusConnectionInterface* names = bus().interface();
    for (int waited = 0; waited < timeoutMs; waited += 50) {
        if (names && names->isServiceRegistered(name).value()) return true;
        QThread::msleep(50);
    }
    return false;
}

QString PortalDesktop::start(const Options& options)
{
    stop();
    if (const QString missing = missingProgram(); !missing.isEmpty())
        return missing + QStringLiteral(" is not installed");
    dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/velotape-portal-XXXXXX"));
    if (!dir->isValid()) return QStringLiteral("cannot make a runtime directory");
    for (const char* sub : { "run", "home", "portals", "services" })
        QDir(dir->path()).mkpath(QString::fromLatin1(sub));
    QFile::setPermissions(runtimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    writeFile(dir->filePath(QStringLiteral("portals/velotapetest.portal")),
        QStringLiteral("[portal]\nDBusName=%1\nInterfaces=org.freedesktop.impl.portal.ScreenCast;"
                       "org.freedesktop.impl.portal.GlobalShortcuts\nUseIn=%2\n")
            .arg(backendName, desktopName));
    writeFile(dir->filePath(QStringLiteral("services/org.freedesktop.impl.portal.PermissionStore.service")),
        QStringLiteral("[D-BUS Service]\nName=org.freedesktop.impl.portal.PermissionStore\n"
                       "Exec=/usr/libexec/xdg-permission-store\n"));
    writeFile(dir->filePath(QStringLiteral("bus.conf")),
        QStringLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                       " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig><type>session</type><listen>unix:dir=%1</listen>"
                       "<servicedir>%2</servicedir><policy context=\"default\"><allow send_destination=\"*\" "
                       "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n")
            .arg(runtimeDir(), dir->filePath(QStringLiteral("services"))));

    env = QProcessEnvironment::systemEnvironment();
    for (const char* name : { "DISPLAY", "WAYLAND_DISPLAY", "PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_REMOTE", "PULSE_SERVER",
             "DBUS_SESSION_BUS_ADDRESS", "QT_QPA_PLATFORM" })
        env.remove(QString::fromLatin1(name));
    const QString home = dir->filePath(QStringLiteral("home"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir());
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    env.insert(QStringLiteral("XDG_STATE_HOME"), home + QStringLiteral("/.local/state"));
    env.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), desktopName);
    env.insert(QStringLiteral("XDG_DESKTOP_PORTAL_DIR"), dir->filePath(QStringLiteral("portals")));
    env.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));

    QProcess* daemon = launch(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--config-file=") + dir->filePath(QStringLiteral("bus.conf")), QStringLiteral("--nofork"),
            QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1") },
        {});
    if (!daemon) return QStringLiteral("dbus-daemon does not start");
    while (!daemon->canReadLine()) {
        if (!daemon->waitForReadyRead(10000))
            return QStringLiteral("dbus-daemon printed no address: ")
                + QString::fromLocal8Bit(daemon->readAllStandardError());
    }
    address = QString::fromUtf8(daemon->readLine()).trimmed();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    static std::atomic<int> connections { 0 };
    connectionName = QStringLiteral("velotape-portal-desktop-%1").arg(++connections);
    if (!QDBusConnection::connectToBus(address, connectionName).isConnected())
        return QStringLiteral("cannot connect to the private bus");

    if (QString failed = startPipeWire(); !failed.isEmpty()) return failed;

    if (!launch(testBackend(),
            { QStringLiteral("--size"), QStringLiteral("%1x%2").arg(options.size.width()).arg(options.size.height()),
                QStringLiteral("--format"), options.format, QStringLiteral("--counter-ms"),
                QString::number(options.counterMs), QStringLiteral("--buffers"),
                !options.dmaBuf                ? QStringLiteral("shm")
                    : options.dmaBufUnmappable ? QStringLiteral("dmabuf-unmappable")
                                               : QStringLiteral("dmabuf"),
                QStringLiteral("--cursor-modes"), QString::number(options.cursorModes) },
            QStringLiteral("backend.log")))
        return QStringLiteral("the test portal backend does not start");
    if (!waitForName(backendName, 10000)) return QStringLiteral("the test portal backend did not take its name");
    if (!launch(QStringLiteral("/usr/libexec/xdg-desktop-portal"), { QStringLiteral("--replace") },
            QStringLiteral("xdg-desktop-portal.log")))
        return QStringLiteral("xdg-desktop-portal does not start");
    if (!waitForName(portalName, 10000)) return QStringLiteral("xdg-desktop-portal did not take its name");
    return {};
}

QString PortalDesktop::startPipeWire()
{
    pipeWire = launch(QStringLiteral("pipewire"), {}, QStringLiteral("pipewire.log"));
    if (!pipeWire) return QStringLiteral("pipewire does not start");
    const QString socket = dir->filePath(QStringLiteral("run/pipewire-0"));
    for (int waited = 0; !QFileInfo::exists(socket) && waited < 10000; waited += 50)
        QThread::msleep(50);
    if (!QFileInfo::exists(socket)) return QStringLiteral("pipewire made no socket");
    wirePlumber = launch(QStringLiteral("wireplumber"), {}, QStringLiteral("wireplumber.log"));
    if (!wirePlumber) return QStringLiteral("wireplumber does not start");
    // Without the session manager no stream is ever linked: it is ready once it is a client.
    bool managed = false;
    for (int waited = 0; !managed && waited < 10000; waited += 100) {
        QProcess list;
        list.setProcessEnvironment(env);
        list.start(QStringLiteral("pw-cli"), { QStringLiteral("ls"), QStringLiteral("Client") });
        list.waitForFinished(5000);
        managed = list.readAllStandardOutput().contains("WirePlumber");
        if (!managed) QThread::msleep(100);
    }
    if (!managed) return QStringLiteral("wireplumber did not connect to pipewire");
    return {};
}

QString PortalDesktop::restartPipeWire()
{
    for (QProcess* process : { wirePlumber, pipeWire }) {
        if (!process) continue;
        process->terminate();
        if (!process->waitForFinished(3000)) {
            process->kill();
            process->waitForFinished(1000);
        }
        std::erase_if(processes, [process](const std::unique_ptr<QProcess>& p) { return p.get() == process; });
    }
    pipeWire = wirePlumber = nullptr;
    return startPipeWire();
}

void PortalDesktop::stop()
{
    // Last started, first ended: the bus goes last, and what it started goes with it.
    for (auto it = processes.rbegin(); it != processes.rend(); ++it) {
        QProcess& process = **it;
        if (process.state() == QProcess::NotRunning) continue;
        process.terminate();
        if (!process.waitForFinished(3000)) {
            process.kill();
            process.waitForFinished(1000);
        }
    }
    processes.clear();
    pipeWire = wirePlumber = nullptr;
    if (!connectionName.isEmpty()) QDBusConnection::disconnectFromBus(connectionName);
    connectionName.clear();
    address.clear();
    dir.reset();
}

QProcessEnvironment PortalDesktop::environment() const
{
    return env;
}

QDBusConnection PortalDesktop::bus() const
{
    return QDBusConnection(connectionName);
}

QVariant PortalDesktop::control(const QString& method, const QVariantList& arguments) const
{
    QDBusMessage call = QDBusMessage::createMethodCall(backendName, QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.velotape.TestPortal"), method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus().call(call, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        std::fprintf(stderr, "test portal %s: %s\n", qPrintable(method), qPrintable(reply.errorMessage()));
        return {};
    }
    return reply.arguments().value(0, QVariant(true));
}

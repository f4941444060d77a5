#include "support/SessionBus.h"

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>

SessionBus::SessionBus() = default;

SessionBus::~SessionBus()
{
    stop();
}

QString SessionBus::start()
{
    stop();
    daemon = std::make_unique<QProcess>();
    // The daemon must not outlive a crashed test.
    daemon->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    daemon->setProcessChannelMode(QProcess::SeparateChannels);
    daemon->start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
            QStringLiteral("--print-address=1") });
    if (!daemon->waitForStarted(5000)) {
        daemon.reset();
        return QStringLiteral("dbus-daemon does not start (is the dbus-daemon package installed?)");
    }
    while (!daemon->canReadLine()) {
        if (!daemon->waitForReadyRead(10000)) {
            const QString error = QString::fromLocal8Bit(daemon->readAllStandardError());
            stop();
            return QStringLiteral("dbus-daemon printed no address: ") + error;
        }
    }
    busAddress = QString::fromUtf8(daemon->readLine()).trimmed();
    if (qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS")) savedAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("DBUS_SESSION_BUS_ADDRESS", busAddress.toUtf8());
    return {};
}

void SessionBus::stop()
{
    if (!daemon) return;
    daemon->terminate();
    if (!daemon->waitForFinished(3000)) {
        daemon->kill();
        daemon->waitForFinished(3000);
    }
    daemon.reset();
    busAddress.clear();
    if (savedAddress)
        qputenv("DBUS_SESSION_BUS_ADDRESS", *savedAddress);
    else
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    savedAddress.reset();
}

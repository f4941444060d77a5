#include "support/HeadlessRun.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <csignal>
#include <sys/prctl.h>

namespace HeadlessRun {

bool start(QProcess& instance, const QString& binary, const QProcessEnvironment& env)
{
    instance.setProcessEnvironment(env);
    // The instance's log lines land in the test's output, where a failure can be read.
    instance.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    instance.start(binary, { QStringLiteral("--headless") });
    return instance.waitForStarted();
}

void stop(QProcess& instance)
{
    if (instance.state() == QProcess::NotRunning) return;
    instance.terminate();
    if (!instance.waitForFinished(5000)) instance.kill();
    instance.waitForFinished(2000);
}

QString control(const QString& binary, const QProcessEnvironment& env, const QStringList& command, int* status)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(binary, command);
    p.waitForFinished(10000);
    *status = p.exitCode();
    return QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError()).trimmed();
}

QString waitUntilBuffered(const QString& binary, const QProcessEnvironment& env, double seconds)
{
    const QRegularExpression buffering(QStringLiteral("^buffering (\\d+\\.\\d) s"));
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        int status = -1;
        const QString answer = control(binary, env, { QStringLiteral("status") }, &status);
        const auto m = buffering.match(answer);
        if (status == 0 && m.hasMatch() && m.captured(1).toDouble() >= seconds) return {};
        if (waited.elapsed() > 30000)
            return QStringLiteral("never buffered %1 s; last status: %2").arg(seconds).arg(answer);
        QThread::msleep(250);
    }
}

QString writeSettings(const QProcessEnvironment& env, const QString& saveFolder, const QString& more)
{
    const QString folder = env.value(QStringLiteral("XDG_CONFIG_HOME")) + QStringLiteral("/Velotape");
    QDir().mkpath(folder);
    QFile conf(folder + QStringLiteral("/Velotape.conf"));
    if (!conf.open(QIODevice::WriteOnly)) return {};
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=4\nvt2.playSound=false\nvt2.savePath=%1\n%2")
                   .arg(saveFolder, more)
                   .toUtf8());
    return conf.fileName();
}

bool said(QProcess& instance, QString& output, const QString& text, int ms)
{
    QElapsedTimer waited;
    waited.start();
    while (!output.contains(text) && waited.elapsed() < ms) {
        instance.waitForReadyRead(100);
        output += QString::fromUtf8(instance.readAllStandardOutput());
    }
    return output.contains(text);
}

QStringList waitForClips(const QString& folder, int count)
{
    QStringList saved;
    QElapsedTimer waited;
    waited.start();
    while (saved.size() < count && waited.elapsed() < 30000) {
        QThread::msleep(200);
        saved = QDir(folder).entryList({ QStringLiteral("*.mp4") }, QDir::Files);
    }
    return saved;
}

} // namespace HeadlessRun

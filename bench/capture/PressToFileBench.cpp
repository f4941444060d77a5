// From the command line to the clip: `velotape start`, then `velotape stop`, against a headless
// instance buffering a private 1920x1080 Xvfb where every pixel moves (testsrc2 at 30 fps), and
// the time from the stop command's launch to the instance's "Saved:" line. Beside it, what the
// control command alone costs: its start to its answer, and the libraries it loads. See
// bench/README.md.

#include "BenchDesktop.h"
#include "support/TestDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <vector>

using namespace BenchDesktop;

namespace {

QString binary()
{
    const QString given = qEnvironmentVariable("VELOTAPE_BENCH_BINARY");
    return given.isEmpty() ? QStringLiteral(VELOTAPE_BINARY) : given;
}

int envInt(const char* name, int fallback)
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue(name, &ok);
    return ok && n > 0 ? n : fallback;
}

struct Run {
    int status = -1;
    QString output;
    double ms = 0;
};

Run control(const QProcessEnvironment& env, const QStringList& command)
{
    QProcess p;
    p.setProcessEnvironment(env);
    QElapsedTimer timer;
    timer.start();
    p.start(binary(), command);
    p.waitForFinished(30000);
    Run run { p.exitCode(), QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError()).trimmed(),
        timer.nsecsElapsed() / 1e6 };
    return run;
}

void printSpread(const char* what, std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    std::printf("%-34s min %8.1f  median %8.1f  max %8.1f ms  (%zu runs:", what, v.front(), v[v.size() / 2], v.back(),
        v.size());
    for (double x : v)
        std::printf(" %.1f", x);
    std::printf(")\n");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--paint-heavy") return paintTestPatternForever();
    QCoreApplication app(argc, argv);
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height }); !error.isEmpty()) {
        std::fprintf(stderr, "press_to_file_bench: %s\n", qPrintable(error));
        return 1;
    }
    QTemporaryDir home;
    const QString clips = home.filePath(QStringLiteral("clips"));
    const QString runtime = home.filePath(QStringLiteral("runtime"));
    QDir().mkpath(clips);
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QDir().mkpath(home.filePath(QStringLiteral("config/Velotape")));
    QFile conf(home.filePath(QStringLiteral("config/Velotape/Velotape.conf")));
    if (!conf.open(QIODevice::WriteOnly)) return 1;
    conf.write(QStringLiteral("[General]\nvt2.bufferSeconds=10\nvt2.frameRate=30\nvt2.playSound=false\n"
                              "vt2.savePath=%1\n")
                   .arg(clips)
                   .toUtf8());
    conf.close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), desktop.display());
    env.insert(QStringLiteral("PULSE_SERVER"), desktop.pulseServer());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.insert(QStringLiteral("HOME"), home.path());
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));

    // The control command alone, with nothing listening: start, the answer, the exit.
    std::vector<double> missing;
    for (int i = 0; i < 10; ++i)
        missing.push_back(control(env, { QStringLiteral("status") }).ms);

    std::unique_ptr<QProcess> painter = startPainter(Painting::heavy);
    QProcess instance;
    instance.setProcessEnvironment(env);
    instance.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    instance.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    instance.start(binary(), { QStringLiteral("--headless") });
    if (!instance.waitForStarted()) return 1;
    QString said;
    auto readInstance = [&] { said += QString::fromUtf8(instance.readAllStandardOutput()); };

    // A full buffer first.
    const QRegularExpression buffering(QStringLiteral("^buffering (\\d+\\.\\d) s"));
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        const Run status = control(env, { QStringLiteral("status") });
        const auto m = buffering.match(status.output);
        if (m.hasMatch() && m.captured(1).toDouble() >= 9.5) break;
        if (waited.elapsed() > 120000) {
            std::fprintf(stderr, "press_to_file_bench: never buffered; last status: %s\n", qPrintable(status.output));
            return 1;
        }
        QThread::msleep(500);
    }

    std::vector<double> answered;
    for (int i = 0; i < 10; ++i)
        answered.push_back(control(env, { QStringLiteral("status") }).ms);
    QProcessEnvironment traced = env;
    traced.insert(QStringLiteral("LD_DEBUG"), QStringLiteral("files"));
    const Run loaded = control(traced, { QStringLiteral("status") });
    const int libraries = int(loaded.output.count(QStringLiteral("calling init:")));

    std::vector<double> presses, stopCommand;
    const int rounds = envInt("VELOTAPE_BENCH_ROUNDS", 3);
    const int recordSeconds = envInt("VELOTAPE_BENCH_RECORD_SECONDS", 5);
    for (int round = 0; round < rounds; ++round) {
        readInstance();
        const qsizetype savedBefore = said.count(QStringLiteral("Saved: "));
        if (const Run start = control(env, { QStringLiteral("start") }); start.status != 0) {
            std::fprintf(stderr, "press_to_file_bench: start: %s\n", qPrintable(start.output));
            return 1;
        }
        QThread::msleep(recordSeconds * 1000);
        QElapsedTimer pressed;
        pressed.start();
        const Run stop = control(env, { QStringLiteral("stop") });
        stopCommand.push_back(stop.ms);
        while (said.count(QStringLiteral("Saved: ")) == savedBefore && pressed.elapsed() < 60000) {
            instance.waitForReadyRead(2);
            readInstance();
        }
        presses.push_back(pressed.nsecsElapsed() / 1e6);
        QThread::msleep(2000); // the save's own follow-ups (the journal, the P&L reading) settle
    }
    instance.terminate();
    instance.waitForFinished(15000);
    painter->kill();
    painter->waitForFinished(1000);

    std::printf("velotape: %s\nload average at the end: ", qPrintable(binary()));
    QFile loadavg(QStringLiteral("/proc/loadavg"));
    if (loadavg.open(QIODevice::ReadOnly)) std::printf("%s", loadavg.readAll().constData());
    printSpread("status, no instance", missing);
    printSpread("status, instance answering", answered);
    std::printf("%-34s %d\n", "libraries the command loads", libraries);
    printSpread("stop command alone (full motion)", stopCommand);
    printSpread("stop command to \"Saved:\"", presses);
    return 0;
}

// The window's start and idle cost on a private Xvfb: from the process's start (fork and exec
// included) to the first paint of the window's content, and the main thread's CPU while the window
// sits on the recorder screen — with no stream (a first launch), and with the ring buffering the
// display and previews off. A plain QWidget's first paint in the same runs is the floor Qt itself
// costs. Five launches each.
//
//     window_bench
//
// See bench/README.md.

#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "support/TestDesktop.h"
#include "ui/AppDelegate.h"
#include "ui/ContentView.h"

#include <QApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <unistd.h>
#include <vector>

namespace {

int64_t monotonicNs()
{
    timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// CPU seconds of the main thread (its id is the process id), from the scheduler's own count.
double mainThreadCpu()
{
    QFile file(QStringLiteral("/proc/self/task/%1/schedstat").arg(getpid()));
    if (!file.open(QIODevice::ReadOnly)) return 0;
    return file.readAll().split(' ').value(0).toDouble() / 1e9;
}

// The event loop as the application runs it: asleep until something happens.
void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Prints the time from `startedNs` to the first paint of `widget`.
class FirstPaint : public QObject {
public:
    FirstPaint(QWidget* widget, int64_t startedNs)
        : started(startedNs)
    {
        widget->installEventFilter(this);
    }
    bool painted = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && !painted) {
            painted = true;
            std::printf("firstPaint %.1f\n", double(monotonicNs() - started) / 1e6);
            std::fflush(stdout);
        }
        return QObject::eventFilter(watched, event);
    }

private:
    int64_t started;
};

int child(int argc, char** argv, bool bare, int64_t startedNs)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));
    if (bare) {
        QWidget window;
        window.resize(AppDelegate::windowSize);
        FirstPaint probe(&window, startedNs);
        window.show();
        while (!probe.painted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return 0;
    }
    AppDelegate delegate(
        AppSession::Options { .headless = false, .source = {}, .socketPath = qEnvironmentVariable("BENCH_SOCKET") });
    QString error;
    if (!delegate.applicationDidFinishLaunching(&error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    // Installed before the event loop runs again: the window is shown but not yet painted.
    auto probe = std::make_unique<FirstPaint>(delegate.contentView(), startedNs);
    while (!probe->painted)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    runFor(3000); // start-up's listing and settling
    double before = mainThreadCpu();
    runFor(10000);
    std::printf("idleNoStream %.3f\n", (mainThreadCpu() - before) / 10 * 100);

    delegate.viewModel()->startPreview();
    delegate.viewModel()->engine()->setPreviewEnabled(false);
    runFor(3000);
    before = mainThreadCpu();
    runFor(10000);
    std::printf("idleBuffering %.3f streaming=%d\n", (mainThreadCpu() - before) / 10 * 100,
        int(delegate.viewModel()->engine()->isStreaming()));
    return 0;
}

struct Series {
    std::vector<double> values;
    void print(const char* name, const char* unit) const
    {
        if (values.empty()) {
            std::printf("%-36s no result\n", name);
            return;
        }
        std::vector<double> v = values;
        std::sort(v.begin(), v.end());
        std::printf("%-36s %.2f / %.2f / %.2f %s (min / median / max of %zu)\n", name, v.front(), v[v.size() / 2],
            v.back(), unit, v.size());
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && (QByteArray(argv[1]) == "--child" || QByteArray(argv[1]) == "--bare"))
        return child(argc, argv, QByteArray(argv[1]) == "--bare", QByteArray(argv[2]).toLongLong());

    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = 1400, .height = 900, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "no desktop: %s\n", qPrintable(error));
        return 1;
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("TMPDIR"), home.path());
    env.insert(QStringLiteral("BENCH_SOCKET"), home.filePath(QStringLiteral("control")));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));

    Series window, bare, idle, buffering;
    for (int run = 0; run < 5; ++run) {
        for (const char* mode : { "--bare", "--child" }) {
            QProcess p;
            p.setProcessEnvironment(env);
            const int64_t started = monotonicNs();
            p.start(QCoreApplication::applicationFilePath(), { QString::fromLatin1(mode), QString::number(started) });
            p.waitForFinished(60000);
            for (const QByteArray& line : p.readAllStandardOutput().split('\n')) {
                const QList<QByteArray> f = line.split(' ');
                if (f.size() < 2) continue;
                const double value = f[1].toDouble();
                if (f[0] == "firstPaint") (QByteArray(mode) == "--bare" ? bare : window).values.push_back(value);
                if (f[0] == "idleNoStream") idle.values.push_back(value);
                if (f[0] == "idleBuffering") buffering.values.push_back(value);
            }
        }
    }
    window.print("start to first paint, Velotape", "ms");
    bare.print("start to first paint, plain QWidget", "ms");
    idle.print("main thread idle, no stream", "% of a core");
    buffering.print("main thread idle, ring buffering", "% of a core");
    return 0;
}

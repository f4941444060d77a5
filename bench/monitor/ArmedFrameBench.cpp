// The armed frame's CPU while it stands, on a private 1920x1080 Xvfb: every style around a
// 1000x600 area, animated at 60 pictures a second, without and then with a compositing manager
// (xcompmgr), and then as a layer-shell surface on a headless sway of the same size. The same process with no frame is
// the floor. CPU is the scheduler's count for all threads of this process and of the X server, which does the copying
// and the shaping.
//
//     armed_frame_bench [SECONDS_PER_STYLE] [STYLE]

#include "core/SettingsEnums.h"
#include "platform/wayland/LayerShellArmedFrame.h"
#include "platform/x11/ArmedAreaOverlay.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/HeadlessSway.h"
#include "support/TestDesktop.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTimer>

#include <cstdio>

namespace {

// CPU seconds of every thread of `pid` so far, or only of its main thread.
double processCpu(qint64 pid, bool mainThreadOnly = false)
{
    double total = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (mainThreadOnly && task.toLongLong() != pid) continue;
        QFile file(tasks.filePath(task + QStringLiteral("/schedstat")));
        if (file.open(QIODevice::ReadOnly)) total += file.readAll().split(' ').value(0).toDouble() / 1e9;
    }
    return total;
}

// The Xvfb that TestDesktop started: a child of this process.
qint64 xServerPid()
{
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly)) continue;
        const QByteArray line = stat.readAll();
        // pid (comm) state ppid ...
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (line.contains("(Xvfb)") && fields.value(1).toLongLong() == QCoreApplication::applicationPid())
            return entry.toLongLong();
    }
    return 0;
}

void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Usage {
    double ours = 0;
    // Of which the main thread: the rest is the thread that paints what stands still.
    double oursMain = 0;
    double server = 0;
};

Usage measure(int ms, qint64 server)
{
    const qint64 self = QCoreApplication::applicationPid();
    const double ours0 = processCpu(self);
    const double main0 = processCpu(self, true);
    const double server0 = processCpu(server);
    QElapsedTimer wall;
    wall.start();
    runFor(ms);
    const double seconds = wall.nsecsElapsed() / 1e9;
    return { 100 * (processCpu(self) - ours0) / seconds, 100 * (processCpu(self, true) - main0) / seconds,
        100 * (processCpu(server) - server0) / seconds };
}

} // namespace

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    const QByteArray only = argc > 2 ? QByteArray(argv[2]) : QByteArray();
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = 1920, .height = 1080, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "no desktop: %s\n", qPrintable(error));
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    const qint64 server = xServerPid();
    auto backend = std::make_shared<X11CaptureBackend>();
    ArmedAreaOverlay frame(backend);
    const QRectF area(460, 240, 1000, 600);

    std::printf("%-10s %-10s %12s %12s %14s\n", "mode", "style", "ours %core", "main thread", "X server %core");
    const auto run = [&](const char* mode) {
        for (const auto& style : EnumTable<AreaOverlayStyle>::cases) {
            if (!only.isEmpty() && only != style.raw) continue;
            frame.show(area, style.value);
            runFor(500);
            const Usage u = measure(seconds * 1000, server);
            std::printf("%-10s %-10s %12.2f %12.2f %14.2f\n", mode, style.raw, u.ours, u.oursMain, u.server);
            std::fflush(stdout);
        }
        // The floor: no frame at all.
        frame.dismiss();
        runFor(500);
        const Usage none = measure(seconds * 1000, server);
        std::printf("%-10s %-10s %12.2f %12.2f %14.2f\n", mode, "(none)", none.ours, none.oursMain, none.server);
    };
    run("plain");
    QProcess compositor;
    compositor.start(QStringLiteral("xcompmgr"), {});
    if (!compositor.waitForStarted(3000)) {
        std::printf("xcompmgr did not start; no composited run\n");
        return 0;
    }
    runFor(1000);
    run("composited");
    compositor.terminate();
    compositor.waitForFinished(3000);

    // The same frames as layer-shell surfaces on a wlroots compositor (sway, headless, pixman); the
    // "X server" column is then sway's CPU, which composites the surface onto its output.
    frame.dismiss();
    if (const QString missing = HeadlessSway::missingProgram(); !missing.isEmpty()) {
        std::printf("%s is not installed; no layer-shell run\n", qPrintable(missing));
        return 0;
    }
    HeadlessSway sway;
    if (const QString error = sway.start({ .size = QSize(1920, 1080), .background = QColor(0x20, 0x40, 0x60) });
        !error.isEmpty()) {
        std::printf("sway did not start: %s\n", qPrintable(error));
        return 0;
    }
    qputenv("XDG_RUNTIME_DIR", sway.runtimeDir().toUtf8());
    qputenv("WAYLAND_DISPLAY", sway.displayName().toUtf8());
    std::unique_ptr<LayerShellArmedFrame> layer = LayerShellArmedFrame::connect();
    if (!layer) {
        std::printf("sway has no layer shell?\n");
        return 1;
    }
    for (const auto& style : EnumTable<AreaOverlayStyle>::cases) {
        if (!only.isEmpty() && only != style.raw) continue;
        layer->show(area, style.value);
        runFor(500);
        const Usage u = measure(seconds * 1000, sway.pid());
        std::printf("%-10s %-10s %12.2f %12.2f %14.2f\n", "layer", style.raw, u.ours, u.oursMain, u.server);
        std::fflush(stdout);
    }
    layer->dismiss();
    runFor(500);
    const Usage none = measure(seconds * 1000, sway.pid());
    std::printf("%-10s %-10s %12.2f %12.2f %14.2f\n", "layer", "(none)", none.ours, none.oursMain, none.server);
    return 0;
}

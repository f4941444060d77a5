#pragma once

// What the capture benchmarks share: CPU and memory readings of processes, a painter process that
// keeps the screen changing, and an event loop that runs for a while.

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace BenchDesktop {

constexpr int width = 1920;
constexpr int height = 1080;

// CPU seconds a process has run, summed over its threads: the scheduler's own count in
// nanoseconds (/proc/PID/task/TID/schedstat). The user and system times of /proc/PID/stat come in
// clock ticks of 10 ms, too coarse for a process that runs a few milliseconds a second.
inline double processCpu(pid_t pid)
{
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    DIR* dir = opendir(tasks.toLocal8Bit().constData());
    double total = 0;
    while (dirent* entry = dir ? readdir(dir) : nullptr) {
        if (entry->d_name[0] == '.') continue;
        QFile file(tasks + QLatin1Char('/') + QLatin1String(entry->d_name) + QStringLiteral("/schedstat"));
        if (file.open(QIODevice::ReadOnly)) total += file.readAll().split(' ').value(0).toDouble() / 1e9;
    }
    if (dir) closedir(dir);
    return total;
}

// This process, threads that have ended included: the ring's closings run on threads that come
// and go, and their time would drop out of a sum over the threads still there.
inline double ownCpu()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A child of this process called `name` (the harness's Xvfb, its PipeWire), to see what the grabs
// cost it; none of those in `known`.
inline pid_t childNamed(const char* name, const std::vector<pid_t>& known = {})
{
    DIR* proc = opendir("/proc");
    pid_t found = 0;
    while (dirent* entry = proc ? readdir(proc) : nullptr) {
        const pid_t pid = atoi(entry->d_name);
        if (pid <= 0) continue;
        QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!file.open(QIODevice::ReadOnly)) continue;
        const QByteArray stat = file.readAll();
        const QByteArray comm = stat.mid(stat.indexOf('(') + 1, stat.lastIndexOf(')') - stat.indexOf('(') - 1);
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        if (comm == name && fields.value(1).toInt() == getpid()
            && std::find(known.begin(), known.end(), pid) == known.end())
            found = pid;
    }
    if (proc) closedir(proc);
    return found;
}

// Runs the event loop for about `s` seconds and returns how long it really ran.
inline double runEventLoopFor(double s)
{
    const auto started = std::chrono::steady_clock::now();
    QEventLoop loop;
    QTimer::singleShot(int(s * 1000), Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

// A separate process that changes the screen 60 times a second (a moving square on a full-screen
// window), so that every capture tick sees a change; its own CPU is nobody's capture cost.
// With `heavy`, it plays FFmpeg's testsrc2 pattern full screen at 30 fps instead: every pixel
// moves, which is what an encoder finds hard and what a chart full of ticks comes close to.
// With `trader`, a 480x320 window moves across a still, detailed desktop 30 times a second: a
// trader's chart window dragged or scrolled, where most of the screen stays as it was.
enum class Painting { square, heavy, trader };

inline std::unique_ptr<QProcess> startPainter(Painting painting = Painting::square)
{
    auto painter = std::make_unique<QProcess>();
    const QString mode = painting == Painting::heavy ? QStringLiteral("--paint-heavy")
        : painting == Painting::trader               ? QStringLiteral("--paint-trader")
                                                     : QStringLiteral("--paint");
    painter->start(QCoreApplication::applicationFilePath(), { mode });
    painter->waitForStarted();
    return painter;
}

// A full-screen window of the painter's own on DISPLAY, mapped, with a graphics context.
struct PainterWindow {
    xcb_connection_t* c = nullptr;
    xcb_screen_t* screen = nullptr;
    xcb_window_t w = 0;
    xcb_gcontext_t gc = 0;

    explicit PainterWindow(uint32_t background)
    {
        c = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(c)) return;
        screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        w = xcb_generate_id(c);
        const uint32_t values[] = { background, 1 };
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, 0, 0, width, height, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(c, w);
        gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, w, 0, nullptr);
    }
    bool ok() const { return screen != nullptr; }
};

// The frames of `ffmpeg -re -f lavfi -i testsrc2` put on a full-screen window as they come.
inline int paintTestPatternForever()
{
    const QByteArray command = QStringLiteral("ffmpeg -loglevel error -re -f lavfi -i testsrc2=size=%1x%2:rate=30 "
                                              "-f rawvideo -pix_fmt bgr0 -")
                                   .arg(width)
                                   .arg(height)
                                   .toLocal8Bit();
    FILE* source = popen(command.constData(), "r");
    if (!source) return 1;
    const PainterWindow window(0);
    if (!window.ok()) return 1;
    xcb_connection_t* c = window.c;
    const xcb_window_t w = window.w;
    const xcb_gcontext_t gc = window.gc;
    const uint8_t depth = window.screen->root_depth;
    std::vector<uint8_t> frame(size_t(width) * height * 4);
    constexpr int rowsPerRequest = 64; // under the core protocol's request size
    while (fread(frame.data(), 1, frame.size(), source) == frame.size()) {
        for (int y = 0; y < height; y += rowsPerRequest) {
            const int rows = std::min(rowsPerRequest, height - y);
            xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, w, gc, width, rows, 0, int16_t(y), 0, depth,
                uint32_t(width) * rows * 4, frame.data() + size_t(y) * width * 4);
        }
        // A round trip: the server has drawn this frame before the next is read.
        free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
        if (xcb_connection_has_error(c)) break;
    }
    pclose(source);
    return 0;
}

// A still desktop with fine detail (so that an encoder cannot skip it for being flat) and a 480x320
// window of its own moving over it 30 times a second. Both windows keep their pictures as
// background pixmaps, so the server repaints what the moving window uncovers by itself.
inline int paintTraderForever()
{
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) return 1;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const uint8_t depth = screen->root_depth;
    auto pixmapOf = [&](int w, int h, auto colourAt) {
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        xcb_create_pixmap(c, depth, pixmap, screen->root, uint16_t(w), uint16_t(h));
        const xcb_gcontext_t gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, pixmap, 0, nullptr);
        std::vector<uint32_t> rows(size_t(w) * 64);
        for (int y = 0; y < h; y += 64) {
            const int n = std::min(64, h - y);
            for (int r = 0; r < n; ++r)
                for (int x = 0; x < w; ++x)
                    rows[size_t(r) * w + x] = colourAt(x, y + r);
            xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, uint16_t(w), uint16_t(n), 0, int16_t(y), 0, depth,
                uint32_t(w) * n * 4, reinterpret_cast<const uint8_t*>(rows.data()));
        }
        xcb_free_gc(c, gc);
        return pixmap;
    };
    // Grid lines, candles and a noisy price line on a dark ground, like a chart platform's desktop.
    const xcb_pixmap_t desk = pixmapOf(width, height, [](int x, int y) -> uint32_t {
        if (x % 96 == 0 || y % 54 == 0) return 0x303840;
        const int candle = x / 12, top = 300 + (candle * 37 % 400), bottom = top + 40 + (candle * 13 % 120);
        if (x % 12 < 8 && y >= top && y <= bottom) return (candle % 3 == 0) ? 0xd04040 : 0x30b060;
        return ((x * 7 + y * 13) % 29 == 0) ? 0x505860 : 0x141820;
    });
    const xcb_pixmap_t panel = pixmapOf(480, 320, [](int x, int y) -> uint32_t {
        if (y < 24) return 0x2a3a5a;
        if ((y - 24) % 20 < 14 && x > 8 && x < 472) return ((x / 6 + y / 20) % 5 == 0) ? 0xe0e0e0 : 0x9098a0;
        return 0x1c2230;
    });
    auto windowWith = [&](xcb_pixmap_t background, int w, int h) {
        const xcb_window_t window = xcb_generate_id(c);
        const uint32_t values[] = { background, 1 };
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, uint16_t(w), uint16_t(h), 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(c, window);
        return window;
    };
    windowWith(desk, width, height);
    const xcb_window_t moving = windowWith(panel, 480, 320);
    for (int i = 0;; ++i) {
        // Round and round an ellipse, 6 s a lap.
        const double a = i * 2 * 3.14159265358979 / 180;
        const int32_t place[] = { int32_t(720 + 600 * std::cos(a)), int32_t(380 + 300 * std::sin(a)) };
        xcb_configure_window(c, moving, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place);
        free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
        std::this_thread::sleep_for(std::chrono::microseconds(1'000'000 / 30));
        if (xcb_connection_has_error(c)) return 0;
    }
}

inline int paintForever()
{
    const PainterWindow window(0x202020);
    if (!window.ok()) return 1;
    xcb_connection_t* c = window.c;
    const xcb_window_t w = window.w;
    const xcb_gcontext_t gc = window.gc;
    for (int i = 0;; ++i) {
        const int x = (i * 16) % (width - 200);
        uint32_t colour = 0x202020;
        xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t old { int16_t(x == 0 ? width - 216 : x - 16), 400, 200, 200 };
        xcb_poly_fill_rectangle(c, w, gc, 1, &old);
        colour = 0x00c0ff;
        xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t square { int16_t(x), 400, 200, 200 };
        xcb_poly_fill_rectangle(c, w, gc, 1, &square);
        xcb_flush(c);
        std::this_thread::sleep_for(std::chrono::microseconds(1'000'000 / 60));
        if (xcb_connection_has_error(c)) return 0;
    }
}

// Resident memory of this process now and at its highest, in MB.
inline std::pair<double, double> residentMegabytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    double rss = 0, peak = 0;
    if (status.open(QIODevice::ReadOnly))
        for (const QByteArray& line : status.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 2) continue;
            if (fields[0] == "VmRSS:") rss = fields[1].toDouble() / 1024;
            if (fields[0] == "VmHWM:") peak = fields[1].toDouble() / 1024;
        }
    return { rss, peak };
}

} // namespace BenchDesktop

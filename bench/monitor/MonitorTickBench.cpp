// The area monitor's tick (grab + signature) on a 1000x600 area of a private 1920x1080 Xvfb, four
// ticks a second as when armed: the way it was (a grab through the X socket, copied and painted
// into a fresh picture, then reduced in floating point), the way it is (a shared-memory view
// reduced in integer sums, only the rows changed since the last tick), the same one picture at a
// time, and the X server scaling the area down itself with RENDER. Beside each, the X server's
// CPU, and how far the signature lands from the exact one. See bench/README.md.

#include "../capture/BenchDesktop.h"
#include "ServerScaledSignature.h"
#include "X11TestClient.h"
#include "app/session/BackendAreaGrabber.h"
#include "monitor/AreaSignature.h"
#include "monitor/PlainSignature.h"
#include "monitor/ScreenPictures.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/TestDesktop.h"

#include <QFile>
#include <QGuiApplication>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

constexpr int screenWidth = 1920;
constexpr int screenHeight = 1080;
const QRect area(400, 200, 1000, 600);

double seconds()
{
    bool ok = false;
    const double s = qEnvironmentVariable("VELOTAPE_BENCH_SECONDS").toDouble(&ok);
    return ok && s > 0 ? s : 10.0;
}

using BenchDesktop::childNamed;
using BenchDesktop::processCpu;

enum class Content { tradingScreen, text, noise };

QImage screenOf(Content content)
{
    const QSize size(screenWidth, screenHeight);
    switch (content) {
    case Content::tradingScreen:
        return ScreenPictures::tradingScreen(size);
    case Content::text:
        return ScreenPictures::text(size, 12);
    case Content::noise:
        return ScreenPictures::noise(size, 1);
    }
    return {};
}

// A private screen showing one picture over all of it.
struct Screen {
    TestDesktop desktop;
    QString error;
    pid_t server = 0;
    std::unique_ptr<X11TestClient> client;
    xcb_window_t window = 0;

    explicit Screen(const QImage& picture)
    {
        error = desktop.start({ .width = screenWidth, .height = screenHeight, .audio = false });
        if (!error.isEmpty()) return;
        server = childNamed("Xvfb");
        client = std::make_unique<X11TestClient>();
        window = client->create({ .rect = QRect(0, 0, screenWidth, screenHeight),
            .wmClass = "Picture",
            .title = QStringLiteral("Picture"),
            .overrideRedirect = true });
        client->draw(window, QPoint(0, 0), picture);
    }
};

double threadCpu()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

struct PerTick {
    double ownMs = 0;
    double serverMs = 0;
    int ticks = 0;
};

// Ticks four times a second for the configured time, as the armed monitor's timer does, and
// returns the CPU each took on this thread and in the X server. `between` runs before each tick,
// outside what is measured.
PerTick measure(
    pid_t server, const std::function<std::optional<QByteArray>()>& tick, const std::function<void(int)>& between)
{
    for (int i = 0; i < 4; ++i) {
        if (between) between(i);
        tick(); // segments, tables and kernels made once
    }
    const int count = std::max(4, int(seconds() * 4));
    double own = 0, served = 0;
    int done = 0;
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        next += std::chrono::milliseconds(250);
        std::this_thread::sleep_until(next);
        if (between) between(i);
        const double serverBefore = processCpu(server);
        const double ownBefore = threadCpu();
        if (tick()) ++done;
        own += threadCpu() - ownBefore;
        // The server may still be putting itself to sleep when the answer is in.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        served += processCpu(server) - serverBefore;
    }
    return { own * 1e3 / count, served * 1e3 / count, done };
}

enum class Path { before, afterOneByOne, after, serverScaled };

// `changing`: each tick finds the area redrawn with the market moved on.
void tick(benchmark::State& state, Path path, Content content, bool changing)
{
    const QImage picture = screenOf(content);
    Screen screen(picture);
    if (!screen.error.isEmpty()) {
        state.SkipWithError(screen.error.toStdString().c_str());
        return;
    }
    auto backend = std::make_shared<X11CaptureBackend>();
    BackendAreaGrabber grabber(backend);
    ServerScaledSignature scaler;
    if (path == Path::serverScaled && !scaler.isReady()) {
        state.SkipWithError("the X server has no RENDER convolution filter");
        return;
    }
    std::vector<QImage> states { picture.copy(area) };
    if (changing)
        for (int t = 1; t < 4; ++t)
            states.push_back(ScreenPictures::tradingScreen(picture.size(), t).copy(area));
    const QImage* shown = &states.front();
    std::function<void(int)> between;
    if (changing)
        between = [&](int i) {
            shown = &states[size_t(i) % states.size()];
            screen.client->draw(screen.window, area.topLeft(), *shown);
        };
    std::optional<QByteArray> last;
    const std::function<std::optional<QByteArray>()> run = [&]() -> std::optional<QByteArray> {
        switch (path) {
        case Path::before: {
            const std::optional<QImage> image = backend->grabRect(area);
            last = image ? PlainSignature::downsample(*image) : std::nullopt;
            break;
        }
        case Path::afterOneByOne: {
            const std::optional<QImage> image = backend->peekRect(area);
            last = image ? AreaSignature::downsampleToSignature(*image) : std::nullopt;
            break;
        }
        case Path::after:
            last = grabber.signatureOfRect(area);
            break;
        case Path::serverScaled:
            last = scaler.signatureOf(area);
            break;
        }
        return last;
    };
    PerTick measured;
    for (auto _ : state) {
        measured = measure(screen.server, run, between);
        state.SetIterationTime(seconds());
    }
    state.counters["ms_per_tick"] = measured.ownMs;
    state.counters["Xvfb_ms_per_tick"] = measured.serverMs;
    state.counters["cpu_%_at_4Hz"] = measured.ownMs * 4 / 10;
    state.counters["Xvfb_cpu_%_at_4Hz"] = measured.serverMs * 4 / 10;
    state.counters["ticks"] = measured.ticks;
    // How far this path's signature is from the exact one of the same picture: 0 means the same
    // bytes; the thresholds are 900 (high), 2500 (medium) and 6000 (low).
    state.counters["diff_to_exact"]
        = last ? AreaSignature::difference(*last, *AreaSignature::downsampleToSignature(*shown)) : -1;
}

// The error of sRGB-space averaging alone, without the server's kernel: the ideal server scaling
// against the exact signature, on the built-in pictures, thin lines, and any pictures listed in
// VELOTAPE_BENCH_PICTURES (colon-separated files, e.g. real screenshots), each over several areas.
void serverScalingError(benchmark::State& state)
{
    std::vector<std::pair<QString, QImage>> pictures {
        { QStringLiteral("trading screen"), ScreenPictures::tradingScreen(QSize(screenWidth, screenHeight)) },
        { QStringLiteral("text 12 px"), ScreenPictures::text(QSize(screenWidth, screenHeight), 12) },
        { QStringLiteral("text 9 px"), ScreenPictures::text(QSize(screenWidth, screenHeight), 9) },
    };
    QImage lines(screenWidth, screenHeight, QImage::Format_RGB32);
    lines.fill(Qt::black);
    for (int x = 0; x < screenWidth; x += 5)
        for (int y = 0; y < screenHeight; ++y)
            lines.setPixel(x, y, 0xffffffffu);
    pictures.emplace_back(QStringLiteral("1-px lines every 5 px"), lines);
    for (const QString& file : qEnvironmentVariable("VELOTAPE_BENCH_PICTURES").split(u':', Qt::SkipEmptyParts))
        if (QImage picture(file); !picture.isNull()) pictures.emplace_back(file.section(u'/', -1), picture);

    double worst = 0;
    for (auto _ : state) {
        for (const auto& [name, picture] : pictures) {
            double largest = 0, total = 0;
            int areas = 0;
            for (const QRect& r : { QRect(0, 0, 1000, 600), QRect(picture.width() / 3, picture.height() / 4, 1000, 600),
                     QRect(0, 0, 400, 250), QRect(picture.width() / 2, picture.height() / 2, 333, 217) }) {
                const QImage crop = picture.copy(r & picture.rect());
                if (crop.width() < 16 || crop.height() < 16) continue;
                const double d = AreaSignature::difference(
                    *AreaSignature::downsampleToSignature(crop), ServerScaledSignature::idealOf(crop));
                largest = std::max(largest, d);
                total += d;
                ++areas;
            }
            if (areas == 0) continue;
            std::printf(
                "  %-40s mean %6.0f, largest %6.0f over %d areas\n", qPrintable(name), total / areas, largest, areas);
            worst = std::max(worst, largest);
        }
    }
    state.counters["largest_diff_to_exact"] = worst;
}

} // namespace

int main(int argc, char** argv)
{
    // Pictures are drawn with Qt's fonts, without a window system of its own.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    struct Case {
        const char* name;
        Content content;
        bool changing;
    };
    const Case cases[] = { { "trading_screen", Content::tradingScreen, false }, { "text", Content::text, false },
        { "noise", Content::noise, false }, { "trading_screen_changing", Content::tradingScreen, true } };
    const std::pair<const char*, Path> paths[]
        = { { "before", Path::before }, { "after_one_by_one", Path::afterOneByOne }, { "after", Path::after },
              { "server_scaled", Path::serverScaled } };
    for (const Case& c : cases)
        for (const auto& [pathName, path] : paths)
            benchmark::RegisterBenchmark(QStringLiteral("Tick/%1/%2").arg(pathName, c.name).toUtf8().constData(),
                [path = path, c](benchmark::State& state) { tick(state, path, c.content, c.changing); })
                ->Iterations(1)
                ->UseManualTime()
                ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("ServerScalingError", serverScalingError)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

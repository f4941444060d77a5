// The camera overlay's cost: the compositing of one 1080p frame, and the whole 1080p30 pipeline with
// the test camera burnt in against ffmpeg x11grab with an `overlay` filter of the same lavfi camera
// at the same size and place. See bench/README.md.

#include "BenchDesktop.h"
#include "ClipProbe.h"
#include "capture/CaptureEngine.h"
#include "devices/CameraCapture.h"
#include "platform/camera/AvDeviceCameras.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/CameraCompositor.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>

using namespace BenchDesktop;

namespace {

constexpr int fps = 30;
// The test camera, at what a webcam gives at its medium setting.
const QByteArray cameraGraph = "testsrc2=size=640x480:rate=30";
// The overlay: a 16:9 rectangle (ffmpeg's overlay can't mask a circle without a per-pixel
// expression), its centre at (0.84, 0.82), its height 0.2 of the picture's.
constexpr double positionX = 0.84;
constexpr double positionY = 0.82;
constexpr double sizeFrac = 0.2;

double seconds()
{
    bool ok = false;
    const double s = qEnvironmentVariable("VELOTAPE_BENCH_SECONDS").toDouble(&ok);
    return ok && s > 0 ? s : 10.0;
}

CameraComposite placement(CameraShape shape, QImage picture)
{
    CameraComposite c;
    c.image = std::move(picture);
    c.positionX = positionX;
    c.positionY = positionY;
    c.sizeFrac = sizeFrac;
    c.shape = shape;
    return c;
}

QImage grainy(int w, int h, int seed)
{
    QImage image(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = qRgb((x * 7 + y + seed) & 255, (x ^ y) & 255, (y * 3 + seed) & 255);
    }
    return image;
}

// One frame's overlay as the ring draws it on the recorder's queue (the camera picture scaled and
// masked into the overlay's surroundings), and, for comparison, what drawing it into a copy of the
// whole picture adds.
void compositeCost(
    benchmark::State& state, CameraShape shape, bool wholeCopy, std::optional<CameraFrameStyle> style = std::nullopt)
{
    const QImage screen = grainy(width, height, 1);
    CameraComposite c = placement(shape, grainy(640, 480, 2));
    c.frameStyle = style;
    for (auto _ : state) {
        auto drawn = CameraCompositor::composite(screen, c, MediaTime(int64_t(state.iterations()), 30));
        if (wholeCopy && drawn) {
            QImage burnt = CameraCompositor::burnIn(screen, *drawn);
            benchmark::DoNotOptimize(burnt.constBits());
        }
        benchmark::DoNotOptimize(drawn);
    }
}

struct Measured {
    double cpuPerSecond = 0;
    double clipFramesPerSecond = 0;
};

double clipFps(const QStringList& files, double span)
{
    int frames = 0;
    double covered = 0;
    for (const QString& file : files) {
        const ClipProbe probe = ClipProbe::read(file);
        const double from = std::max(0.0, probe.duration() - (span - covered));
        for (const ClipProbe::Frame& frame : probe.frames)
            if (frame.seconds >= from) ++frames;
        covered += probe.duration() - from;
        if (covered >= span) break;
    }
    return covered > 0 ? frames / covered : 0;
}

Measured measureOurs()
{
    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    engine.setPreviewEnabled(false);
    SegmentedRecorder recorder;
    recorder.configure(width, height, 20, 10, fps);
    CameraCapture camera(std::make_shared<AvDeviceCameras>(cameraGraph));
    // The provider as the session sets it: the placement, and the camera's newest picture.
    recorder.cameraProvider = [slot = camera.pictureSlot()]() -> std::optional<CameraComposite> {
        auto s = slot.lock();
        if (!s) return std::nullopt;
        QImage picture = *s->lock();
        if (picture.isNull()) return std::nullopt;
        return placement(CameraShape::rect, std::move(picture));
    };
    camera.start(std::nullopt);
    while (camera.latestFrame().isNull())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    recorder.armBuffering();
    recorder.setKeepsFrameRate(true);
    engine.setRecorder(&recorder);
    bool listed = false;
    engine.refreshAvailableContent([&listed] { listed = true; });
    while (!listed)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    engine.startStream(width, height, fps, true, false, false);
    if (!engine.isStreaming()) return {};
    runEventLoopFor(1.0);
    recorder.startRecording(QDir::temp().filePath(QStringLiteral("camera-bench.mp4")));
    const double cpuBefore = ownCpu();
    const double s = runEventLoopFor(seconds());
    Measured m { (ownCpu() - cpuBefore) / s, 0 };
    QString clip;
    recorder.onFinished = [&clip](const QString& path) { clip = path; };
    recorder.stopRecording();
    while (clip.isEmpty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    engine.stopStream();
    camera.stop();
    recorder.disarmBuffering();
    m.clipFramesPerSecond = clipFps({ clip }, s);
    QFile::remove(clip);
    return m;
}

Measured measureFfmpeg(const QString& display)
{
    QTemporaryDir segments;
    // The same rectangle: its height the base size, 16:9, filled (scaled by the larger ratio, cut).
    const double base = sizeFrac * height;
    const int w = int(std::lround(base * 16 / 9)) & ~1;
    const int h = int(std::lround(base)) & ~1;
    const int x = int(std::lround(positionX * width - w / 2.0));
    const int y = int(std::lround(positionY * height - h / 2.0));
    const QString filter = QStringLiteral("[1:v]scale=%1:-2,crop=%1:%2[cam];[0:v][cam]overlay=%3:%4:eof_action=pass:"
                                          "repeatlast=1,format=yuv420p")
                               .arg(w)
                               .arg(h)
                               .arg(x)
                               .arg(y);
    const QStringList args { QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
        QStringLiteral("-f"), QStringLiteral("x11grab"), QStringLiteral("-framerate"), QString::number(fps),
        QStringLiteral("-video_size"), QStringLiteral("%1x%2").arg(width).arg(height), QStringLiteral("-draw_mouse"),
        QStringLiteral("1"), QStringLiteral("-i"), display, QStringLiteral("-re"), QStringLiteral("-f"),
        QStringLiteral("lavfi"), QStringLiteral("-i"), QString::fromLatin1(cameraGraph),
        QStringLiteral("-filter_complex"), filter, QStringLiteral("-c:v"), QStringLiteral("libx265"),
        QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-b:v"), QStringLiteral("20M"),
        QStringLiteral("-x265-params"), QStringLiteral("keyint=%1:bframes=0:log-level=error").arg(fps),
        QStringLiteral("-f"), QStringLiteral("segment"), QStringLiteral("-segment_time"), QStringLiteral("6"),
        segments.filePath(QStringLiteral("seg%05d.mp4")) };
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), args);
    if (!ffmpeg.waitForStarted()) return {};
    const pid_t pid = pid_t(ffmpeg.processId());
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double s = seconds();
    const double cpuBefore = processCpu(pid);
    std::this_thread::sleep_for(std::chrono::duration<double>(s));
    Measured m { (processCpu(pid) - cpuBefore) / s, 0 };
    ffmpeg.terminate();
    ffmpeg.waitForFinished(3000);
    QStringList files = QDir(segments.path()).entryList({ QStringLiteral("seg*.mp4") }, QDir::Files, QDir::Name);
    std::reverse(files.begin(), files.end());
    for (QString& file : files)
        file = segments.filePath(file);
    m.clipFramesPerSecond = clipFps(files, s);
    return m;
}

// A still screen and a changing one: with the camera on, both sides write 30 pictures a second.
void pipelineWithCamera(benchmark::State& state, bool changing)
{
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height, .audio = false }); !error.isEmpty()) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    std::unique_ptr<QProcess> painter;
    if (changing) painter = startPainter();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Measured ours, ffmpeg;
    for (auto _ : state) {
        ffmpeg = measureFfmpeg(desktop.display());
        ours = measureOurs();
        state.SetIterationTime(2 * seconds());
    }
    state.counters["ours_cpu_%"] = ours.cpuPerSecond * 100;
    state.counters["ffmpeg_cpu_%"] = ffmpeg.cpuPerSecond * 100;
    state.counters["ours/ffmpeg"] = ffmpeg.cpuPerSecond > 0 ? ours.cpuPerSecond / ffmpeg.cpuPerSecond : 0;
    state.counters["ours_clip_fps"] = ours.clipFramesPerSecond;
    state.counters["ffmpeg_clip_fps"] = ffmpeg.clipFramesPerSecond;
    if (painter) {
        painter->kill();
        painter->waitForFinished(1000);
    }
}

} // namespace

BENCHMARK_CAPTURE(compositeCost, circle_1080p, CameraShape::circle, false)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compositeCost, rect_1080p, CameraShape::rect, false)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compositeCost, circle_1080p_soft_chrome, CameraShape::circle, false, CameraFrameStyle::soft)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compositeCost, circle_1080p_wave_chrome, CameraShape::circle, false, CameraFrameStyle::wave)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compositeCost, circle_1080p_into_whole_copy, CameraShape::circle, true)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pipelineWithCamera, still, false)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(pipelineWithCamera, changing, true)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--paint") return paintForever();
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

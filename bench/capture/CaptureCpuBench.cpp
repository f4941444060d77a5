// CPU per second of capturing a 1920x1080 display at 30 fps: the capture engine against
// `ffmpeg -f x11grab` at the same size and rate, both writing nowhere, once with a screen that
// changes every frame and once with a still one. The pipeline cases add the encoder and the ring
// of segment files on both sides (`-f segment` with libx265 for ffmpeg). See bench/README.md.

#include "BenchDesktop.h"
#include "ClipProbe.h"
#include "capture/CaptureEngine.h"
#include "capture/FrameScaler.h"
#include "capture/PreviewMaker.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <dirent.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace BenchDesktop;

namespace {
constexpr int fps = 30;

double seconds()
{
    bool ok = false;
    const double s = qEnvironmentVariable("VELOTAPE_BENCH_SECONDS").toDouble(&ok);
    return ok && s > 0 ? s : 10.0;
}

// Ours and the peer alternately, this many times each (VELOTAPE_BENCH_ROUNDS, 3 by default).
int rounds()
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue("VELOTAPE_BENCH_ROUNDS", &ok);
    return ok && n > 0 ? n : 3;
}

struct Measured {
    double cpuPerSecond = 0;
    double serverCpuPerSecond = 0;
    double framesPerSecond = 0;
    // From the pictures that reached the files (a player's view), when a ring ran.
    double clipFramesPerSecond = 0;
    // Of those, the ones that show a picture different from the one before (a grab on a clock
    // writes the same picture again when nothing new was painted).
    double distinctPerSecond = 0;
    double longestGapMs = 0;
    int decodeErrors = 0;
    // Key frames a second in the files; and ours: pictures the encoder was still too busy to take.
    double keysPerSecond = 0;
    double busyDropsPerMinute = 0;
};

// Frames a second, the longest time between two pictures, and decode errors over the last
// `span` seconds of the given files, read as a player would.
void measureFiles(const QStringList& files, double span, Measured& m)
{
    int frames = 0, keys = 0, distinct = 0;
    double covered = 0;
    for (const QString& file : files) {
        const ClipProbe probe = ClipProbe::read(file);
        m.decodeErrors += probe.decodeErrors;
        const double from = std::max(0.0, probe.duration() - (span - covered));
        double previous = -1;
        const ClipProbe::Frame* before = nullptr;
        for (const ClipProbe::Frame& frame : probe.frames) {
            if (frame.seconds < from) continue;
            ++frames;
            if (!before || ClipProbe::differ(*before, frame)) ++distinct;
            before = &frame;
            keys += frame.key ? 1 : 0;
            if (previous >= 0) m.longestGapMs = std::max(m.longestGapMs, (frame.seconds - previous) * 1000);
            previous = frame.seconds;
        }
        covered += probe.duration() - from;
        if (covered >= span) break;
    }
    m.clipFramesPerSecond = covered > 0 ? frames / covered : 0;
    m.distinctPerSecond = covered > 0 ? distinct / covered : 0;
    m.keysPerSecond = covered > 0 ? keys / covered : 0;
}

// The size the recorder screen's card shows the preview at in the window's default size.
constexpr QSize cardPreviewSize { 844, 350 };

Measured measureOurs(pid_t server, bool previews, bool ring, QSize previewSize = {})
{
    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    // The whole pipeline: frames into the segment ring at the settings a user gets by default.
    std::unique_ptr<SegmentedRecorder> recorder;
    if (ring) {
        recorder = std::make_unique<SegmentedRecorder>();
        recorder->configure(width, height, 20, 10, fps);
        recorder->armBuffering();
        engine.setRecorder(recorder.get());
    }
    // Without previews the engine only hands frames on, as ffmpeg writing to null does; with them
    // it also scales one frame in two (15 a second) for the window: to 720 lines, or to the size
    // the window shows them at when one is given.
    engine.setPreviewEnabled(previews);
    if (previewSize.isValid()) engine.setPreviewSize(previewSize);
    // What the window does with each preview: takes it on the main thread and lets it go.
    QObject::connect(
        &engine, &CaptureEngine::latestPreviewChanged, &engine, [&engine] { (void)engine.latestPreview(); });
    int frames = 0;
    engine.frameSink = [&frames](const VideoFrame&) { ++frames; };
    bool listed = false;
    engine.refreshAvailableContent([&listed] { listed = true; });
    while (!listed)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    engine.startStream(width, height, fps, true, false, false);
    if (!engine.isStreaming()) return {};
    runEventLoopFor(1.0); // settle
    // A recording runs while measuring, so that the ring counts what it refuses.
    if (recorder) recorder->startRecording(QDir::temp().filePath(QStringLiteral("never-saved.mp4")));
    const int framesBefore = frames;
    const double cpuBefore = ownCpu();
    const double serverBefore = processCpu(server);
    const int64_t busyBefore = recorder ? recorder->dropCounters()->count(DropCounters::Cause::encoderBusy) : 0;
    const double s = runEventLoopFor(seconds());
    const double refused = recorder ? double(recorder->droppedFrames()) : 0;
    Measured m { (ownCpu() - cpuBefore) / s, (processCpu(server) - serverBefore) / s,
        (frames - framesBefore - refused) / s };
    if (recorder)
        m.busyDropsPerMinute
            = double(recorder->dropCounters()->count(DropCounters::Cause::encoderBusy) - busyBefore) * 60 / s;
    if (recorder) {
        QString clip;
        recorder->onFinished = [&clip](const QString& path) { clip = path; };
        recorder->stopRecording();
        while (clip.isEmpty())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
        engine.stopStream();
        recorder->disarmBuffering();
        measureFiles({ clip }, s, m);
        QFile::remove(clip);
        return m;
    }
    engine.stopStream();
    return m;
}

// The frames ffmpeg has written so far, from its -progress lines.
int ffmpegFrames(QProcess& ffmpeg, QByteArray& progress)
{
    progress += ffmpeg.readAllStandardOutput();
    const int at = progress.lastIndexOf("frame=");
    return at < 0 ? 0 : progress.mid(at + 6, progress.indexOf('\n', at) - at - 6).trimmed().toInt();
}

Measured measureFfmpeg(const QString& display, pid_t server, bool ring)
{
    QTemporaryDir segments;
    QStringList args { QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
        QStringLiteral("-progress"), QStringLiteral("pipe:1"), QStringLiteral("-f"), QStringLiteral("x11grab"),
        QStringLiteral("-framerate"), QString::number(fps), QStringLiteral("-video_size"),
        QStringLiteral("%1x%2").arg(width).arg(height), QStringLiteral("-draw_mouse"), QStringLiteral("1"),
        QStringLiteral("-i"), display };
    if (ring) {
        // The matched peer: 4:2:0 as we encode, every grabbed frame encoded once (no duplicates),
        // the same encoder, preset, bit rate, key frame interval and no B-frames, in 6 s files.
        args << QStringLiteral("-pix_fmt") << QStringLiteral("yuv420p") << QStringLiteral("-c:v")
             << QStringLiteral("libx265") << QStringLiteral("-preset") << QStringLiteral("ultrafast")
             << QStringLiteral("-b:v") << QStringLiteral("20M") << QStringLiteral("-x265-params")
             << QStringLiteral("keyint=%1:bframes=0:log-level=error").arg(fps) << QStringLiteral("-fps_mode")
             << QStringLiteral("passthrough") << QStringLiteral("-f") << QStringLiteral("segment")
             << QStringLiteral("-segment_time") << QStringLiteral("6")
             << segments.filePath(QStringLiteral("seg%05d.mp4"));
    } else {
        args << QStringLiteral("-f") << QStringLiteral("null") << QStringLiteral("-");
    }
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), args);
    if (!ffmpeg.waitForStarted()) return {};
    const pid_t pid = pid_t(ffmpeg.processId());
    QByteArray progress;
    std::this_thread::sleep_for(std::chrono::seconds(1)); // settle
    ffmpeg.waitForReadyRead(100);
    const int framesBefore = ffmpegFrames(ffmpeg, progress);
    const double s = seconds();
    const double cpuBefore = processCpu(pid);
    const double serverBefore = processCpu(server);
    std::this_thread::sleep_for(std::chrono::duration<double>(s));
    const double cpu = processCpu(pid) - cpuBefore;
    const double serverCpu = processCpu(server) - serverBefore;
    ffmpeg.waitForReadyRead(1500); // progress comes every half second
    Measured m { cpu / s, serverCpu / s, (ffmpegFrames(ffmpeg, progress) - framesBefore) / s };
    ffmpeg.terminate();
    ffmpeg.waitForFinished(3000);
    if (ring) {
        // Newest first; the file being written when ffmpeg stopped closes with it.
        QStringList files = QDir(segments.path()).entryList({ QStringLiteral("seg*.mp4") }, QDir::Files, QDir::Name);
        std::reverse(files.begin(), files.end());
        for (QString& file : files)
            file = segments.filePath(file);
        measureFiles(files, s, m);
    }
    return m;
}

void captureCpu(benchmark::State& state, bool changing, bool previews, bool ring, QSize previewSize = {},
    Painting painting = Painting::square)
{
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height, .audio = false }); !error.isEmpty()) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    const pid_t server = childNamed("Xvfb");
    std::unique_ptr<QProcess> painter;
    if (changing) painter = startPainter(painting);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    // Ours and the peer in turn, `rounds` times each: drift of a shared machine falls on both alike,
    // and the ratio of each pair is what survives a load that the absolute figures do not.
    std::vector<Measured> oursRuns, ffmpegRuns;
    for (auto _ : state) {
        for (int round = 0; round < rounds(); ++round) {
            ffmpegRuns.push_back(measureFfmpeg(desktop.display(), server, ring));
            oursRuns.push_back(measureOurs(server, previews, ring, previewSize));
        }
        state.SetIterationTime(2 * rounds() * seconds());
    }
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v.empty() ? 0.0 : v[v.size() / 2];
    };
    auto each = [](const std::vector<Measured>& runs, auto field) {
        std::vector<double> out;
        for (const Measured& m : runs)
            out.push_back(field(m));
        return out;
    };
    auto cpuPerFrame = [ring](const Measured& m) {
        const double frames = ring ? m.clipFramesPerSecond : m.framesPerSecond;
        return frames > 0 ? m.cpuPerSecond * 1000 / frames : 0;
    };
    std::vector<double> ratios, frameRatios;
    for (size_t i = 0; i < oursRuns.size(); ++i) {
        const Measured &o = oursRuns[i], &f = ffmpegRuns[i];
        ratios.push_back(f.cpuPerSecond > 0 ? o.cpuPerSecond / f.cpuPerSecond : 0);
        frameRatios.push_back(cpuPerFrame(f) > 0 ? cpuPerFrame(o) / cpuPerFrame(f) : 0);
    }
    const Measured ours { median(each(oursRuns, [](const Measured& m) { return m.cpuPerSecond; })),
        median(each(oursRuns, [](const Measured& m) { return m.serverCpuPerSecond; })),
        median(each(oursRuns, [](const Measured& m) { return m.framesPerSecond; })),
        median(each(oursRuns, [](const Measured& m) { return m.clipFramesPerSecond; })),
        median(each(oursRuns, [](const Measured& m) { return m.distinctPerSecond; })),
        median(each(oursRuns, [](const Measured& m) { return m.longestGapMs; })), 0 };
    const Measured ffmpeg { median(each(ffmpegRuns, [](const Measured& m) { return m.cpuPerSecond; })),
        median(each(ffmpegRuns, [](const Measured& m) { return m.serverCpuPerSecond; })),
        median(each(ffmpegRuns, [](const Measured& m) { return m.framesPerSecond; })),
        median(each(ffmpegRuns, [](const Measured& m) { return m.clipFramesPerSecond; })),
        median(each(ffmpegRuns, [](const Measured& m) { return m.distinctPerSecond; })),
        median(each(ffmpegRuns, [](const Measured& m) { return m.longestGapMs; })), 0 };
    int oursErrors = 0, ffmpegErrors = 0;
    for (size_t i = 0; i < oursRuns.size(); ++i) {
        oursErrors += oursRuns[i].decodeErrors;
        ffmpegErrors += ffmpegRuns[i].decodeErrors;
    }
    std::sort(ratios.begin(), ratios.end());
    std::sort(frameRatios.begin(), frameRatios.end());
    // Medians of the rounds; the ratios' spread over the rounds beside them.
    state.counters["ours_cpu_%"] = ours.cpuPerSecond * 100;
    state.counters["ffmpeg_cpu_%"] = ffmpeg.cpuPerSecond * 100;
    state.counters["ours/ffmpeg"] = median(ratios);
    state.counters["ours/ffmpeg_min"] = ratios.front();
    state.counters["ours/ffmpeg_max"] = ratios.back();
    state.counters["ours_fps"] = ours.framesPerSecond;
    state.counters["ffmpeg_fps"] = ffmpeg.framesPerSecond;
    state.counters["Xvfb_cpu_%_ours"] = ours.serverCpuPerSecond * 100;
    state.counters["Xvfb_cpu_%_ffmpeg"] = ffmpeg.serverCpuPerSecond * 100;
    if (ring) {
        // What a viewer of the files gets, and what each picture in them cost.
        state.counters["ours_clip_fps"] = ours.clipFramesPerSecond;
        state.counters["ffmpeg_clip_fps"] = ffmpeg.clipFramesPerSecond;
        state.counters["ours_distinct_fps"] = ours.distinctPerSecond;
        state.counters["ffmpeg_distinct_fps"] = ffmpeg.distinctPerSecond;
        state.counters["ours_longest_gap_ms"] = ours.longestGapMs;
        state.counters["ffmpeg_longest_gap_ms"] = ffmpeg.longestGapMs;
        state.counters["ours_cpu_ms_per_frame"] = median(each(oursRuns, cpuPerFrame));
        state.counters["ffmpeg_cpu_ms_per_frame"] = median(each(ffmpegRuns, cpuPerFrame));
        state.counters["per_frame_ours/ffmpeg"] = median(frameRatios);
        state.counters["per_frame_ours/ffmpeg_min"] = frameRatios.front();
        state.counters["per_frame_ours/ffmpeg_max"] = frameRatios.back();
        state.counters["ours_keys_per_s"] = median(each(oursRuns, [](const Measured& m) { return m.keysPerSecond; }));
        state.counters["ffmpeg_keys_per_s"]
            = median(each(ffmpegRuns, [](const Measured& m) { return m.keysPerSecond; }));
        state.counters["ours_encoder_busy_per_min"]
            = median(each(oursRuns, [](const Measured& m) { return m.busyDropsPerMinute; }));
        state.counters["ours_decode_errors"] = oursErrors;
        state.counters["ffmpeg_decode_errors"] = ffmpegErrors;
    }
    // Every round on its own line too, for the record.
    for (size_t i = 0; i < oursRuns.size(); ++i)
        std::fprintf(stderr,
            "round %zu: ours %.1f%% %.1f fps %.1f ms/picture %.2f keys/s %.0f busy/min; ffmpeg %.1f%% %.1f fps %.1f "
            "ms/picture %.2f keys/s\n",
            i + 1, oursRuns[i].cpuPerSecond * 100, ring ? oursRuns[i].clipFramesPerSecond : oursRuns[i].framesPerSecond,
            cpuPerFrame(oursRuns[i]), oursRuns[i].keysPerSecond, oursRuns[i].busyDropsPerMinute,
            ffmpegRuns[i].cpuPerSecond * 100, ring ? ffmpegRuns[i].clipFramesPerSecond : ffmpegRuns[i].framesPerSecond,
            cpuPerFrame(ffmpegRuns[i]), ffmpegRuns[i].keysPerSecond);
    if (painter) {
        painter->kill();
        painter->waitForFinished(1000);
    }
}

// The preview's own cost: the same changing screen captured with previews at the card's size
// and without, in turn, three times, so that the machine's drift falls on both alike.
void previewCpu(benchmark::State& state)
{
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height, .audio = false }); !error.isEmpty()) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    const pid_t server = childNamed("Xvfb");
    std::unique_ptr<QProcess> painter = startPainter();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::vector<double> with, without, previewFps;
    for (auto _ : state) {
        for (int round = 0; round < 3; ++round) {
            without.push_back(measureOurs(server, false, false).cpuPerSecond * 100);
            with.push_back(measureOurs(server, true, false, cardPreviewSize).cpuPerSecond * 100);
        }
        state.SetIterationTime(6 * seconds());
    }
    std::sort(with.begin(), with.end());
    std::sort(without.begin(), without.end());
    state.counters["with_previews_median_%"] = with[with.size() / 2];
    state.counters["without_median_%"] = without[without.size() / 2];
    state.counters["preview_cost_%"] = with[with.size() / 2] - without[without.size() / 2];
    state.counters["with_min_%"] = with.front();
    state.counters["with_max_%"] = with.back();
    state.counters["without_min_%"] = without.front();
    state.counters["without_max_%"] = without.back();
    painter->kill();
    painter->waitForFinished(1000);
}

// One preview of a 1080p frame by each way of scaling it: the smooth QImage scale to 720 lines
// that previews were, the filtering scalers at the card's size, and what PreviewMaker does.
void previewScale(benchmark::State& state, int way)
{
    QImage frame(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(frame.scanLine(y));
        for (int x = 0; x < width; ++x)
            line[x] = qRgb((x * 7 + y) & 255, (x ^ y) & 255, (y * 3) & 255);
    }
    const QSize card = PreviewMaker::fittedSize(frame.size(), cardPreviewSize);
    FrameScaler bilinear;
    for (auto _ : state) {
        QImage out;
        switch (way) {
        case 0:
            out = frame.scaled(1280, 720, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            break;
        case 1:
            out = bilinear.fit(frame, card);
            break;
        case 2:
            out = PreviewMaker::downscale(frame, card);
            break;
        case 3:
            out = frame.scaled(card, Qt::IgnoreAspectRatio, Qt::FastTransformation);
            break;
        case 4:
            out = PreviewMaker::downscale(frame, QSize(1280, 720));
            break;
        case 5:
            out = frame.scaled(card, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            break;
        }
        benchmark::DoNotOptimize(out.constBits());
    }
}

// From the second press to the clip renamed into place, for a clip of the buffer plus
// `recordSeconds` of a changing 1080p30 screen, with `cp` of the same file beside it; and the
// memory that the always-on ring holds meanwhile.
void saveLatency(benchmark::State& state)
{
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height, .audio = false }); !error.isEmpty()) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    std::unique_ptr<QProcess> painter = startPainter();
    bool ok = false;
    const double recordSeconds = qEnvironmentVariable("VELOTAPE_BENCH_RECORD_SECONDS").toDouble(&ok);
    const double length = ok && recordSeconds > 0 ? recordSeconds : 25.0;
    QTemporaryDir out;
    CaptureEngine engine(std::make_shared<X11CaptureBackend>());
    engine.setPreviewEnabled(false);
    SegmentedRecorder recorder;
    recorder.configure(width, height, 20, 10, fps);
    recorder.armBuffering();
    engine.setRecorder(&recorder);
    QString saved;
    recorder.onFinished = [&saved](const QString& path) { saved = path; };
    bool listed = false;
    engine.refreshAvailableContent([&listed] { listed = true; });
    while (!listed)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    engine.startStream(width, height, fps, true, false, false);
    runEventLoopFor(10.0); // a full buffer
    std::vector<double> latencies, copies, rss;
    int round = 0;
    for (auto _ : state) {
        saved.clear();
        recorder.startRecording(out.filePath(QStringLiteral("clip%1.mp4").arg(round++)));
        runEventLoopFor(length);
        const auto pressed = std::chrono::steady_clock::now();
        recorder.stopRecording();
        while (saved.isEmpty())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        const double latency = std::chrono::duration<double>(std::chrono::steady_clock::now() - pressed).count();
        latencies.push_back(latency * 1000);
        const auto copyStart = std::chrono::steady_clock::now();
        QProcess::execute(QStringLiteral("cp"), { saved, out.filePath(QStringLiteral("copy.mp4")) });
        copies.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - copyStart).count() * 1000);
        QFile::remove(out.filePath(QStringLiteral("copy.mp4")));
        state.SetIterationTime(latency);
        rss.push_back(residentMegabytes().first);
        state.counters["clip_MB"] = QFileInfo(saved).size() / 1e6;
        QFile::remove(saved);
    }
    engine.stopStream();
    painter->kill();
    painter->waitForFinished(1000);
    auto minMedMax = [&](std::vector<double> v, const char* name) {
        std::sort(v.begin(), v.end());
        state.counters[std::string(name) + "_min"] = v.front();
        state.counters[std::string(name) + "_median"] = v[v.size() / 2];
        state.counters[std::string(name) + "_max"] = v.back();
    };
    minMedMax(latencies, "save_ms");
    minMedMax(copies, "cp_ms");
    minMedMax(rss, "rss_MB");
    state.counters["rss_peak_MB"] = residentMegabytes().second;
}

} // namespace

BENCHMARK(saveLatency)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(captureCpu, changing, true, false, false)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(captureCpu, still, false, false, false)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(captureCpu, changing_with_previews, true, true, false)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK(previewCpu)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(previewScale, qimage_smooth_to_720_lines, 0)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(previewScale, swscale_bilinear_to_card, 1)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(previewScale, halving_then_nearest_to_card, 2)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(previewScale, qimage_nearest_to_card, 3)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(previewScale, halving_then_nearest_to_720_lines, 4)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(previewScale, qimage_smooth_to_card, 5)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(captureCpu, pipeline_changing, true, false, true)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(captureCpu, pipeline_heavy, true, false, true, QSize(), Painting::heavy)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(captureCpu, pipeline_trader, true, false, true, QSize(), Painting::trader)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(captureCpu, pipeline_still, false, false, true)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--paint") return paintForever();
    if (argc > 1 && QByteArray(argv[1]) == "--paint-heavy") return paintTestPatternForever();
    if (argc > 1 && QByteArray(argv[1]) == "--paint-trader") return paintTraderForever();
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

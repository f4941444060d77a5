// Benchmarks of the rolling buffer: encode throughput of the ring, the passthrough export against
// `cp` of the same bytes, and `ffmpeg -f segment` as a peer with the same encoder settings.
// See bench/README.md for how to run them and what the numbers are compared against.

#include "IndexedFrames.h"
#include "recorder/ClipExporter.h"
#include "recorder/SegmentWriter.h"
#include "recorder/SegmentedRecorder.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int fps = 60;
constexpr double bitrateMbps = 20;

double processCpuSeconds()
{
    timespec ts {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

double childrenCpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
}

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The synthetic source: a short loop of grainy pictures, made once, so that the encoder has real
// work at 20 Mb/s and the benchmark measures encoding rather than drawing.
const std::vector<QImage>& source(int width, int height)
{
    static std::map<int, std::vector<QImage>> made;
    auto& pictures = made[width];
    if (pictures.empty())
        for (int i = 0; i < 12; ++i)
            pictures.push_back(IndexedFrames::picture(i * 37, width, height, true));
    return pictures;
}

// Segments of the 1080p throughput run, kept for the export benchmark.
std::unique_ptr<SegmentedRecorder> keptRing;

void ringThroughput(benchmark::State& state, int width, int height, double mediaSeconds, bool keep)
{
    const auto& pictures = source(width, height);
    const int frames = int(mediaSeconds * fps);
    for (auto _ : state) {
        auto recorder = std::make_unique<SegmentedRecorder>();
        // Time moves with the frames offered, and every one of them is taken.
        recorder->setClock([] { return MediaTime::invalid(); });
        recorder->setFramesWaitingLimit(std::numeric_limits<int>::max());
        // Paced writers: the benchmark offers frames as fast as the ring takes them.
        recorder->setWriterFactory([](const QString& path, std::shared_ptr<SegmentEncoder> encoder) {
            auto writer = std::make_unique<SegmentWriter>(path, encoder);
            writer->setExpectsMediaDataInRealTime(false);
            return writer;
        });
        recorder->configure(width, height, bitrateMbps, mediaSeconds + 6, fps);
        recorder->waitUntilIdle();
        const double cpu0 = processCpuSeconds(), wall0 = now();
        for (int i = 0; i < frames; ++i) {
            recorder->ingest(VideoFrame { pictures[i % pictures.size()], MediaTime(int64_t(i) * 10, 600) });
            if (i % fps == 0) recorder->waitUntilIdle(); // keep the queue as short as live capture does
        }
        recorder->ingest(VideoFrame { pictures[0], MediaTime(int64_t(frames) * 10, 600) }); // closes the last
        recorder->waitUntilIdle();
        const double wall = now() - wall0, cpu = processCpuSeconds() - cpu0;
        state.SetIterationTime(wall);
        state.counters["fps"] = frames / wall;
        state.counters["cpu_s_per_media_s"] = cpu / mediaSeconds;
        state.counters["realtime_x"] = mediaSeconds / wall;
        if (keep) keptRing = std::move(recorder);
    }
}

void exportVersusCp(benchmark::State& state)
{
    if (!keptRing) {
        state.SkipWithError("needs the 1080p ring run first");
        return;
    }
    std::vector<Segment> segments = keptRing->segmentsSnapshot();
    qint64 bytes = 0;
    for (const Segment& s : segments)
        bytes += QFileInfo(s.url).size();
    QTemporaryDir out;
    // Cut 0.5 s into the first segment, mid-GOP, as a real recording does.
    const MediaTime trim = segments.front().startPTS + MediaTime(300, 600);
    double exportTotal = 0, cpTotal = 0;
    int runs = 0;
    for (auto _ : state) {
        QFile::remove(out.filePath("clip.mp4"));
        const double t0 = now();
        const ClipExporter::Result result = ClipExporter::exportConcatenated(segments, trim, out.filePath("clip.mp4"));
        const double exportSeconds = now() - t0;
        if (!result.completed) {
            state.SkipWithError(result.errorText.toUtf8().constData());
            return;
        }
        QDir(out.filePath("cp")).removeRecursively();
        QDir().mkpath(out.filePath("cp"));
        QString command = QStringLiteral("cp");
        for (const Segment& s : segments)
            command += QStringLiteral(" '") + s.url + QLatin1Char('\'');
        command += QStringLiteral(" '") + out.filePath("cp") + QLatin1Char('\'');
        const double t1 = now();
        if (std::system(command.toUtf8().constData()) != 0) {
            state.SkipWithError("cp failed");
            return;
        }
        const double cpSeconds = now() - t1;
        state.SetIterationTime(exportSeconds);
        exportTotal += exportSeconds;
        cpTotal += cpSeconds;
        ++runs;
    }
    state.counters["clip_MB"] = bytes / 1e6;
    state.counters["export_ms"] = exportTotal / runs * 1000;
    state.counters["cp_ms"] = cpTotal / runs * 1000;
    state.counters["export_over_cp"] = exportTotal / cpTotal;
}

// ffmpeg writing a rolling segment set from the same pictures, with the ring's encoder settings.
void ffmpegSegmentPeer(benchmark::State& state, int width, int height, double mediaSeconds)
{
    const auto& pictures = source(width, height);
    const int frames = int(mediaSeconds * fps);
    for (auto _ : state) {
        QTemporaryDir dir;
        const QString command
            = QStringLiteral(
                  "ffmpeg -hide_banner -loglevel error -f rawvideo -pix_fmt bgra -s %1x%2 -r %3 -i - "
                  "-sws_flags bilinear -pix_fmt yuv420p -c:v libx265 -preset ultrafast -b:v %4M -g %3 "
                  "-x265-params keyint=%3:min-keyint=1:bframes=0:open-gop=0:repeat-headers=1:log-level=error "
                  "-f segment -segment_time 6 -segment_format mp4 -reset_timestamps 1 "
                  "-segment_wrap 4 '%5/seg")
                  .arg(width)
                  .arg(height)
                  .arg(fps)
                  .arg(bitrateMbps)
                  .arg(dir.path())
            + QStringLiteral("%03d.mp4'"); // not through arg(), which would take %03 for a placeholder
        const double cpu0 = childrenCpuSeconds(), wall0 = now();
        FILE* pipe = popen(command.toUtf8().constData(), "w");
        if (!pipe) {
            state.SkipWithError("ffmpeg did not start");
            return;
        }
        for (int i = 0; i < frames; ++i) {
            const QImage& p = pictures[i % pictures.size()];
            fwrite(p.constBits(), 1, size_t(p.sizeInBytes()), pipe);
        }
        const int status = pclose(pipe);
        const double wall = now() - wall0, cpu = childrenCpuSeconds() - cpu0;
        if (status != 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
        state.SetIterationTime(wall);
        state.counters["fps"] = frames / wall;
        state.counters["cpu_s_per_media_s"] = cpu / mediaSeconds;
        state.counters["realtime_x"] = mediaSeconds / wall;
    }
}

// What the ring's queue spends to open the next segment's file at 1080p, once the ring's encoders
// run (they live across segments): a writer made, its input added, the file opened, its span
// begun, and then ended with one picture so that the encoder's thread writes its header and trailer
// too. Thread CPU and wall time of the opening alone, a segment at a time.
void segmentOpen(benchmark::State& state)
{
    QTemporaryDir dir;
    auto encoder = std::make_shared<SegmentEncoder>();
    const QImage picture = source(1920, 1080).front();
    SegmentWriter::VideoSettings video;
    video.width = 1920;
    video.height = 1080;
    video.averageBitRate = int64_t(bitrateMbps * 1e6);
    video.expectedFPS = fps;
    auto threadCpu = [] {
        timespec ts {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return ts.tv_sec + ts.tv_nsec / 1e9;
    };
    int n = 0;
    double openCpu = 0, openWall = 0;
    for (auto _ : state) {
        const MediaTime start = MediaTime::fromSeconds(n, 600);
        const double cpu0 = threadCpu(), wall0 = now();
        auto writer = std::make_unique<SegmentWriter>(dir.filePath(QStringLiteral("seg-%1.mp4").arg(n++)), encoder);
        writer->setExpectsMediaDataInRealTime(false);
        writer->addVideoInput(video);
        const bool opened = writer->startWriting();
        writer->startSession(start);
        const double wall = now() - wall0;
        openCpu += threadCpu() - cpu0;
        openWall += wall;
        state.SetIterationTime(wall);
        if (!opened) {
            state.SkipWithError("the segment did not open");
            return;
        }
        writer->append(VideoFrame { picture, start });
        writer->endSession(start + MediaTime(1, 60));
        if (writer->finishWriting() != SegmentWriter::Status::completed) {
            state.SkipWithError("the segment did not complete");
            return;
        }
    }
    state.counters["open_cpu_ms"] = openCpu * 1000 / std::max(1, n);
    state.counters["open_wall_ms"] = openWall * 1000 / std::max(1, n);
}

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const double seconds = qEnvironmentVariableIsSet("VELOTAPE_BENCH_SECONDS")
        ? qEnvironmentVariable("VELOTAPE_BENCH_SECONDS").toDouble()
        : 10.0;
    benchmark::RegisterBenchmark("Ring/segment_open/1920x1080", segmentOpen)
        ->Iterations(30)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    // In this order: the 1080p ring run leaves 30 s of segments behind for the export.
    benchmark::RegisterBenchmark("Ring/encode/1280x720", ringThroughput, 1280, 720, seconds, false)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("Peer/ffmpeg_segment/1280x720", ffmpegSegmentPeer, 1280, 720, seconds)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("Ring/encode/1920x1080", ringThroughput, 1920, 1080, 30.0, true)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("Peer/ffmpeg_segment/1920x1080", ffmpegSegmentPeer, 1920, 1080, seconds)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("Export/30s_1080p_20Mbps_vs_cp", exportVersusCp)
        ->Iterations(5)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    keptRing.reset();
    benchmark::Shutdown();
    return 0;
}

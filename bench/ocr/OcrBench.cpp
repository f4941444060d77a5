#include "journal/ClipAutoDetect.h"
#include "platform/ocr/TesseractRecognizer.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

namespace {

// Where the figure sits in the clip, and the watched area around it (pixels of the 1080p clip).
const QRectF area(1560, 930, 300, 70);

bool runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(900'000) || process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program), process.readAll().constData());
        return false;
    }
    return true;
}

// A clip as the recorder writes them: 1080p HEVC at 30 fps with a key frame every second, 9 s
// long, a moving test picture behind a trading panel whose P&L figure is `figure`. Made once.
QString clip(const char* figure)
{
    // Kept between runs: encoding them takes longer than the benchmarks.
    const QDir dir(QDir::temp().filePath(QStringLiteral("velotape-ocr-bench")));
    QDir().mkpath(dir.path());
    const QString path = dir.filePath(QString::fromUtf8(figure).remove(u',') + QStringLiteral(".mp4"));
    if (QFile::exists(path)) return path;
    const QString partial = path + QStringLiteral(".part.mp4");
    const QString font = QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    const QString graph
        = QStringLiteral("drawbox=x=1500:y=880:w=400:h=160:color=0x101418:t=fill,"
                         "drawtext=fontfile=%1:text='Open P&L':fontsize=20:fontcolor=0x9aa0a6:x=1520:y=895,"
                         "drawtext=fontfile=%1:text='%2':fontsize=26:fontcolor=0x30d060:x=1580:y=950")
              .arg(font, QString::fromUtf8(figure).replace(u',', QStringLiteral("\\,")));
    if (!runTool(QStringLiteral("ffmpeg"),
            { QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                QStringLiteral("-y"), QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                QStringLiteral("testsrc2=s=1920x1080:r=30:d=9"), QStringLiteral("-vf"), graph, QStringLiteral("-c:v"),
                QStringLiteral("libx265"), QStringLiteral("-preset"), QStringLiteral("ultrafast"),
                QStringLiteral("-x265-params"), QStringLiteral("log-level=error:keyint=30:bframes=0"),
                QStringLiteral("-tag:v"), QStringLiteral("hvc1"), partial })
        || !QFile::rename(partial, path))
        std::abort();
    return path;
}

double cpuSeconds(int who)
{
    rusage usage {};
    getrusage(who, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds so far of the whole process, every thread (Tesseract's own ones included), and of
// the programs it started and waited for.
double processCpuSeconds()
{
    return cpuSeconds(RUSAGE_SELF) + cpuSeconds(RUSAGE_CHILDREN);
}

// Reports the process's CPU per iteration, which the machine's load does not inflate as it does
// the wall time.
struct ProcessCpu {
    benchmark::State& state;
    double start = processCpuSeconds();
    ~ProcessCpu()
    {
        state.counters["process_cpu_ms"] = benchmark::Counter(
            (processCpuSeconds() - start) * 1000.0 / double(state.iterations()), benchmark::Counter::kDefaults);
    }
};

void checkFound(benchmark::State& state, const std::optional<ClipAutoDetect::Result>& result, double pnl)
{
    if (!result || result->pnl != pnl) state.SkipWithError("the figure was not read");
}

// One clip, the engine already running: what each further clip of `velotape detect` costs.
void BM_DetectWithRunningEngine(benchmark::State& state)
{
    const QString path = clip("+1,234.50");
    const auto recognizer = TesseractRecognizer::create();
    const QSizeF size(1920, 1080);
    const ProcessCpu cpu { state };
    for (auto _ : state)
        checkFound(state, ClipAutoDetect::detect(path, area, size, size, *recognizer).result, 1234.5);
}

// One clip with an engine made for it: what the save sequence pays after each save.
void BM_DetectWithFreshEngine(benchmark::State& state)
{
    const QString path = clip("+1,234.50");
    const QSizeF size(1920, 1080);
    const ProcessCpu cpu { state };
    for (auto _ : state) {
        const auto recognizer = TesseractRecognizer::create();
        checkFound(state, ClipAutoDetect::detect(path, area, size, size, *recognizer).result, 1234.5);
    }
}

// The worst case: a zero at every offset, so all eight frames are decoded and read.
void BM_DetectBreakevenAllOffsets(benchmark::State& state)
{
    const QString path = clip("0.00");
    const auto recognizer = TesseractRecognizer::create();
    const QSizeF size(1920, 1080);
    const ProcessCpu cpu { state };
    for (auto _ : state)
        checkFound(state, ClipAutoDetect::detect(path, area, size, size, *recognizer).result, 0);
}

void BM_EngineStart(benchmark::State& state)
{
    const ProcessCpu cpu { state };
    for (auto _ : state)
        benchmark::DoNotOptimize(TesseractRecognizer::create());
}

// The stock tools doing the same job for one frame: ffmpeg seeks to 0.3 s before the end, crops,
// enlarges by Lanczos to the same height, and the tesseract program reads the picture.
void BM_Peer_ffmpegAndTesseractCli(benchmark::State& state)
{
    const QString path = clip("+1,234.50");
    QTemporaryDir dir;
    const QString png = dir.filePath(QStringLiteral("crop.png"));
    const QString filter = QStringLiteral("crop=%1:%2:%3:%4,format=gray,scale=iw*3:ih*3:flags=lanczos")
                               .arg(area.width())
                               .arg(area.height())
                               .arg(area.x())
                               .arg(area.y());
    const ProcessCpu cpu { state };
    for (auto _ : state) {
        if (!runTool(QStringLiteral("ffmpeg"),
                { QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                    QStringLiteral("-y"), QStringLiteral("-sseof"), QStringLiteral("-0.3"), QStringLiteral("-i"), path,
                    QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-vf"), filter, png })
            || !runTool(QStringLiteral("tesseract"),
                { png, QStringLiteral("-"), QStringLiteral("--psm"), QStringLiteral("11") }))
            state.SkipWithError("the stock tools failed");
    }
}

} // namespace

BENCHMARK(BM_DetectWithRunningEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);
BENCHMARK(BM_DetectWithFreshEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);
BENCHMARK(BM_DetectBreakevenAllOffsets)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);
BENCHMARK(BM_EngineStart)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK(BM_Peer_ffmpegAndTesseractCli)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);

BENCHMARK_MAIN();

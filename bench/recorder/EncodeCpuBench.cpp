// CPU to turn the same 1080p BGRA pictures into HEVC: our encoder (VideoEncoder: the conversion,
// only of what changed when the pictures say so, and libx265 with the ring's settings) against
// ffmpeg converting to yuv420p and encoding with libx265 as the peer does (ultrafast, 20 Mb/s, a key
// frame a second, no B-frames). CPU time, not wall time: it is what the load of a shared machine
// changes least. Ours and ffmpeg alternately, ROUNDS times (3). See bench/README.md.
//   encode_cpu_bench [heavy|trader] [PICTURES]

#include "media/VideoEncoder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int fps = 30;

double processCpu()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A trader's screen: a still chart desktop, and a 480x320 panel going round an ellipse, 6 degrees a
// picture; `moved` gets the rectangles each picture changed (where the panel left and where it is).
QRect panelAt(int i)
{
    const double a = i * 2 * M_PI / 60;
    return QRect(int(720 + 600 * std::cos(a)), int(380 + 300 * std::sin(a)), 480, 320);
}

QImage traderPicture(int i)
{
    static QImage desk = [] {
        QImage image(width, height, QImage::Format_RGB32);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int candle = x / 12, top = 300 + (candle * 37 % 400), bottom = top + 40 + (candle * 13 % 120);
                QRgb c = ((x * 7 + y * 13) % 29 == 0) ? 0x505860 : 0x141820;
                if (x % 12 < 8 && y >= top && y <= bottom) c = (candle % 3 == 0) ? 0xd04040 : 0x30b060;
                if (x % 96 == 0 || y % 54 == 0) c = 0x303840;
                image.setPixel(x, y, 0xff000000u | c);
            }
        return image;
    }();
    QImage picture = desk.copy();
    const QRect panel = panelAt(i) & picture.rect();
    for (int y = panel.top(); y <= panel.bottom(); ++y)
        for (int x = panel.left(); x <= panel.right(); ++x) {
            const int px = x - panelAt(i).x(), py = y - panelAt(i).y();
            QRgb c = py < 24 ? 0x2a3a5a : 0x1c2230;
            if (py >= 24 && (py - 24) % 20 < 14 && px > 8 && px < 472)
                c = ((px / 6 + py / 20) % 5 == 0) ? 0xe0e0e0 : 0x9098a0;
            picture.setPixel(x, y, 0xff000000u | c);
        }
    return picture;
}

// The pictures as raw BGRA in a file (for ffmpeg) and in memory (for us).
std::vector<QImage> makePictures(const QString& kind, int count, const QString& file)
{
    std::vector<QImage> pictures;
    if (kind == QStringLiteral("heavy")) {
        QProcess::execute(QStringLiteral("ffmpeg"),
            { QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-y"), QStringLiteral("-f"),
                QStringLiteral("lavfi"), QStringLiteral("-i"),
                QStringLiteral("testsrc2=size=%1x%2:rate=%3").arg(width).arg(height).arg(fps),
                QStringLiteral("-frames:v"), QString::number(count), QStringLiteral("-pix_fmt"), QStringLiteral("bgra"),
                QStringLiteral("-f"), QStringLiteral("rawvideo"), file });
        QFile raw(file);
        if (!raw.open(QIODevice::ReadOnly)) return {};
        for (int i = 0; i < count; ++i) {
            QImage picture(width, height, QImage::Format_RGB32);
            if (raw.read(reinterpret_cast<char*>(picture.bits()), picture.sizeInBytes()) != picture.sizeInBytes())
                return {};
            pictures.push_back(picture);
        }
        return pictures;
    }
    QFile raw(file);
    if (!raw.open(QIODevice::WriteOnly)) return {};
    for (int i = 0; i < count; ++i) {
        pictures.push_back(traderPicture(i));
        raw.write(reinterpret_cast<const char*>(pictures.back().constBits()), pictures.back().sizeInBytes());
    }
    return pictures;
}

struct Run {
    double cpu = 0;
    double bytes = 0;
    // Ours: CPU of the key frames' sends and of the others', after the first picture (the encoder's
    // threads finish each picture within its send: no lookahead, one frame thread).
    double keyCpu = 0;
    double otherCpu = 0;
    int keys = 0;
};

Run ours(const std::vector<QImage>& pictures, bool trader, bool onlyChanges)
{
    VideoEncoder::Settings settings;
    settings.width = width;
    settings.height = height;
    settings.averageBitRate = 20'000'000;
    settings.expectedFPS = fps;
    settings.timeBase = AVRational { 1, fps };
    QString error;
    const double before = processCpu();
    std::unique_ptr<VideoEncoder> encoder = VideoEncoder::open(QStringLiteral("libx265"), settings, &error);
    if (!encoder) {
        std::fprintf(stderr, "encode_cpu_bench: %s\n", qPrintable(error));
        return {};
    }
    double bytes = 0;
    const PacketSink sink = [&bytes](AVPacket* p) {
        bytes += p->size;
        return 0;
    };
    Run run;
    for (size_t i = 0; i < pictures.size(); ++i) {
        std::vector<QRect> changed;
        if (i > 0) changed = { panelAt(int(i) - 1), panelAt(int(i)) };
        const bool key = i % fps == 0;
        const double sendBefore = processCpu();
        encoder->send(pictures[i], int64_t(i), key, sink, trader && onlyChanges && i > 0 ? &changed : nullptr);
        // The first picture also starts the encoder up, which the ring does once for all its segments.
        if (i == 0) continue;
        (key ? run.keyCpu : run.otherCpu) += processCpu() - sendBefore;
        run.keys += key ? 1 : 0;
    }
    encoder->finish(sink);
    run.cpu = processCpu() - before;
    run.bytes = bytes;
    return run;
}

Run ffmpeg(const QString& file, int count)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"),
        { QStringLiteral("-hide_banner"), QStringLiteral("-benchmark"), QStringLiteral("-f"),
            QStringLiteral("rawvideo"), QStringLiteral("-pix_fmt"), QStringLiteral("bgra"), QStringLiteral("-s"),
            QStringLiteral("%1x%2").arg(width).arg(height), QStringLiteral("-r"), QString::number(fps),
            QStringLiteral("-i"), file, QStringLiteral("-frames:v"), QString::number(count), QStringLiteral("-pix_fmt"),
            QStringLiteral("yuv420p"), QStringLiteral("-c:v"), QStringLiteral("libx265"), QStringLiteral("-preset"),
            QStringLiteral("ultrafast"), QStringLiteral("-b:v"), QStringLiteral("20M"), QStringLiteral("-x265-params"),
            QStringLiteral("keyint=%1:bframes=0:log-level=error").arg(fps), QStringLiteral("-f"),
            QStringLiteral("hevc"), QStringLiteral("-y"), file + QStringLiteral(".hevc") });
    p.waitForFinished(-1);
    const QString said = QString::fromUtf8(p.readAllStandardError());
    const auto m = QRegularExpression(QStringLiteral("utime=([0-9.]+)s stime=([0-9.]+)s")).match(said);
    return { m.hasMatch() ? m.captured(1).toDouble() + m.captured(2).toDouble() : 0,
        double(QFile(file + QStringLiteral(".hevc")).size()) };
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString kind = argc > 1 ? QString::fromLatin1(argv[1]) : QStringLiteral("heavy");
    const int count = argc > 2 ? std::max(2, atoi(argv[2])) : 60;
    const int asked = qEnvironmentVariableIntValue("VELOTAPE_BENCH_ROUNDS");
    const int rounds = asked > 0 ? asked : 3;
    const bool trader = kind == QStringLiteral("trader");
    const QString file = QDir::temp().filePath(QStringLiteral("velotape-encode-bench-%1.bgra").arg(kind));
    const std::vector<QImage> pictures = makePictures(kind, count, file);
    if (int(pictures.size()) != count) {
        std::fprintf(stderr, "encode_cpu_bench: cannot make the pictures\n");
        return 1;
    }
    std::vector<double> oursMs, wholeMs, peerMs, ratios, keyMs, otherMs;
    double oursBytes = 0, peerBytes = 0;
    for (int round = 0; round < rounds; ++round) {
        const Run peer = ffmpeg(file, count);
        const Run our = ours(pictures, trader, true);
        peerMs.push_back(peer.cpu * 1000 / count);
        oursMs.push_back(our.cpu * 1000 / count);
        ratios.push_back(peer.cpu > 0 ? our.cpu / peer.cpu : 0);
        keyMs.push_back(our.keys > 0 ? our.keyCpu * 1000 / our.keys : 0);
        otherMs.push_back(count - 1 > our.keys ? our.otherCpu * 1000 / (count - 1 - our.keys) : 0);
        oursBytes = our.bytes;
        peerBytes = peer.bytes;
        if (trader) wholeMs.push_back(ours(pictures, trader, false).cpu * 1000 / count);
        std::printf("round %d: ours %.1f ms a picture, ffmpeg %.1f ms, ratio %.2f\n", round + 1, oursMs.back(),
            peerMs.back(), ratios.back());
        std::fflush(stdout);
    }
    std::printf("%s, %d pictures 1920x1080, medians of %d rounds: ours %.1f ms CPU a picture, ffmpeg %.1f ms, "
                "ours/ffmpeg %.2f (%.2f to %.2f); stream %.1f MB ours, %.1f MB ffmpeg\n",
        qPrintable(kind), count, rounds, median(oursMs), median(peerMs), median(ratios),
        *std::min_element(ratios.begin(), ratios.end()), *std::max_element(ratios.begin(), ratios.end()),
        oursBytes / 1e6, peerBytes / 1e6);
    std::printf("ours, a key frame %.1f ms CPU, any other picture %.1f ms: a key frame costs %.1f pictures\n",
        median(keyMs), median(otherMs), median(otherMs) > 0 ? median(keyMs) / median(otherMs) : 0);
    if (trader)
        std::printf(
            "ours converting every picture whole instead of what changed: %.1f ms a picture\n", median(wholeMs));
    QFile::remove(file);
    QFile::remove(file + QStringLiteral(".hevc"));
    return 0;
}

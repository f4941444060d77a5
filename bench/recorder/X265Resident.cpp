// The resident memory of one bare HEVC encoder as the ring opens it (libx265, 1920x1080, 20 Mb/s,
// 30 fps, the recorder's own VideoEncoder settings), fed grainy 1080p pictures: what x265 itself
// keeps, beside everything else the recorder holds. Prints RSS and anonymous memory from
// /proc/self/smaps_rollup before the encoder opens, after, and after each of the first pictures.
//
//     x265_resident [PICTURES]
//
// See bench/README.md.

#include "IndexedFrames.h"
#include "media/VideoEncoder.h"

#include <QFile>

#include <cstdio>

namespace {

void report(const char* when)
{
    QFile rollup(QStringLiteral("/proc/self/smaps_rollup"));
    long rss = 0, anonymous = 0;
    if (rollup.open(QIODevice::ReadOnly))
        for (const QByteArray& line : rollup.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 2) continue;
            if (fields[0] == "Rss:") rss = fields[1].toLong();
            if (fields[0] == "Anonymous:") anonymous = fields[1].toLong();
        }
    std::printf("%-20s rss %6.1f MB  anonymous %6.1f MB\n", when, rss / 1024.0, anonymous / 1024.0);
}

} // namespace

int main(int argc, char** argv)
{
    const int pictures = argc > 1 ? std::max(1, std::atoi(argv[1])) : 90;
    // Made before anything is measured, as the ring gets them from the capture.
    std::vector<QImage> loop;
    for (int i = 0; i < 4; ++i)
        loop.push_back(IndexedFrames::picture(i, 1920, 1080, true));
    report("start");
    VideoEncoder::Settings settings;
    settings.width = 1920;
    settings.height = 1080;
    settings.averageBitRate = 20000000;
    settings.expectedFPS = 30;
    QString error;
    std::unique_ptr<VideoEncoder> encoder = VideoEncoder::open(QStringLiteral("libx265"), settings, &error);
    if (!encoder) {
        std::fprintf(stderr, "libx265 does not open: %s\n", qPrintable(error));
        return 1;
    }
    report("opened");
    const PacketSink discard = [](AVPacket*) { return 0; };
    for (int i = 0; i < pictures; ++i) {
        const int64_t pts = int64_t(i) * settings.timeBase.den / (settings.expectedFPS * settings.timeBase.num);
        if (const int rc = encoder->send(loop[i % loop.size()], pts, i % settings.expectedFPS == 0, discard); rc < 0) {
            std::fprintf(stderr, "picture %d fails: %s\n", i + 1, qPrintable(avErrorText(rc)));
            return 1;
        }
        if (i < 6 || i + 1 == pictures) {
            char when[32];
            std::snprintf(when, sizeof when, "after %d pictures", i + 1);
            report(when);
        }
    }
    encoder->finish(discard);
    encoder.reset();
    report("closed");
}

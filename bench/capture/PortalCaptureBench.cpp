// CPU per picture of capturing a changing 1920x1080 screen at 30 fps: the Wayland path (the real
// xdg-desktop-portal, PipeWire and our test backend as the compositor) against the X11 path (a
// private Xvfb, MIT-SHM grabs), in turns in the same minute so that the machine's load falls on
// both alike. Only the capture: frames are counted and let go, as in capture_cpu_bench. See
// bench/README.md.

#include "BenchDesktop.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "platform/x11/X11CaptureBackend.h"
#include "support/PortalDesktop.h"
#include "support/TestDesktop.h"

#include <QApplication>
#include <QTextStream>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <vector>

using namespace BenchDesktop;

namespace {

struct Run {
    double ownMsPerPicture = 0; // this process: the capture thread, conversion, fitting
    double serverMsPerPicture = 0; // the display server's side: Xvfb, or PipeWire and the producer
    double picturesPerSecond = 0;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

Run measure(CaptureBackend& backend, const std::vector<pid_t>& serverSide, double seconds, bool showsCursor = false)
{
    auto output = std::make_shared<StreamOutput>();
    std::atomic<int> pictures { 0 };
    output->onFrame = [&pictures](const VideoFrame&) { ++pictures; };
    StreamConfiguration configuration;
    configuration.width = width;
    configuration.height = height;
    configuration.minimumFrameInterval = MediaTime(1, 30);
    configuration.showsCursor = showsCursor;
    ContentFilter filter;
    const CaptureBackend::ContentResult content = backend.shareableContent();
    if (content.content && !content.content->displays.empty()) filter.display = content.content->displays.front();
    CaptureBackend::StreamStart started = backend.startCapture(filter, configuration, output);
    if (!started.stream) {
        std::fprintf(stderr, "no stream: %s\n", qPrintable(started.error));
        return {};
    }
    runEventLoopFor(1.0); // settled
    const int picturesBefore = pictures;
    const double ownBefore = ownCpu();
    double serverBefore = 0;
    for (pid_t pid : serverSide)
        serverBefore += processCpu(pid);
    const double ran = runEventLoopFor(seconds);
    const double own = ownCpu() - ownBefore;
    double server = -serverBefore;
    for (pid_t pid : serverSide)
        server += processCpu(pid);
    const int count = pictures - picturesBefore;
    started.stream->stop();
    Run run;
    run.picturesPerSecond = count / ran;
    run.ownMsPerPicture = count ? own * 1000 / count : 0;
    run.serverMsPerPicture = count ? server * 1000 / count : 0;
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--paint") return paintForever();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    bool ok = false;
    double seconds = qEnvironmentVariable("VELOTAPE_BENCH_SECONDS").toDouble(&ok);
    if (!ok || seconds <= 0) seconds = 10;
    const int rounds = 3;

    TestDesktop x11;
    if (const QString error = x11.start({ .width = width, .height = height, .audio = false }); !error.isEmpty()) {
        std::fprintf(stderr, "X11 desktop: %s\n", qPrintable(error));
        return 1;
    }
    const std::unique_ptr<QProcess> painter = startPainter();
    PortalDesktop portal;
    // A new picture every 16 ms, as the X11 painter's 60 a second.
    if (const QString error = portal.start({ .size = QSize(width, height), .counterMs = 16 }); !error.isEmpty()) {
        std::fprintf(stderr, "portal desktop: %s\n", qPrintable(error));
        return 1;
    }
    portal.control(QStringLiteral("StartCounter"));
    portal.control(QStringLiteral("SetCursor"), { width / 2, height / 2, 0, 0, 32, 32, QStringLiteral("#ffffff") });

    X11CaptureBackend x11Backend;
    WaylandCaptureBackend::Kept kept;
    WaylandCaptureBackend portalBackend(
        { [&kept] { return kept; }, [&kept](const WaylandCaptureBackend::Kept& k) { kept = k; } }, portal.bus());
    const std::vector<pid_t> xServer { childNamed("Xvfb") };
    // The compositor's side: PipeWire and the producer (the test backend paints its pictures too,
    // which a compositor does anyway).
    const std::vector<pid_t> portalServer { childNamed("pipewire"), childNamed("velotape-test-p") };

    // A second desktop whose node hands out linear DMA-BUFs (memfds standing in for them: no GPU
    // here), which the stream maps and reads between the sync calls.
    PortalDesktop dmaBufPortal;
    if (const QString error = dmaBufPortal.start({ .size = QSize(width, height), .counterMs = 16, .dmaBuf = true });
        !error.isEmpty()) {
        std::fprintf(stderr, "DMA-BUF portal desktop: %s\n", qPrintable(error));
        return 1;
    }
    dmaBufPortal.control(QStringLiteral("StartCounter"));
    WaylandCaptureBackend::Kept dmaBufKept;
    WaylandCaptureBackend dmaBufBackend({ [&dmaBufKept] { return dmaBufKept; },
                                            [&dmaBufKept](const WaylandCaptureBackend::Kept& k) { dmaBufKept = k; } },
        dmaBufPortal.bus());
    const std::vector<pid_t> dmaBufServer { childNamed("pipewire", portalServer),
        childNamed("velotape-test-p", portalServer) };

    std::vector<double> x11Own, x11Server, x11Rate, portalOwn, portalServerMs, portalRate, cursorOwn, cursorServer,
        cursorRate, dmaBufOwn, dmaBufServerMs, dmaBufRate;
    for (int round = 0; round < rounds; ++round) {
        const Run a = measure(x11Backend, xServer, seconds);
        x11Own.push_back(a.ownMsPerPicture);
        x11Server.push_back(a.serverMsPerPicture);
        x11Rate.push_back(a.picturesPerSecond);
        const Run b = measure(portalBackend, portalServer, seconds);
        portalOwn.push_back(b.ownMsPerPicture);
        portalServerMs.push_back(b.serverMsPerPicture);
        portalRate.push_back(b.picturesPerSecond);
        const Run d = measure(dmaBufBackend, dmaBufServer, seconds);
        dmaBufOwn.push_back(d.ownMsPerPicture);
        dmaBufServerMs.push_back(d.serverMsPerPicture);
        dmaBufRate.push_back(d.picturesPerSecond);
        // A still screen under a cursor that moves 60 times a second, sent beside the pictures.
        portal.control(QStringLiteral("StopCounter"));
        portal.control(QStringLiteral("WanderCursor"), { true });
        const Run c = measure(portalBackend, portalServer, seconds, true);
        portal.control(QStringLiteral("WanderCursor"), { false });
        portal.control(QStringLiteral("StartCounter"));
        portal.control(QStringLiteral("SetCursor"), { width / 2, height / 2, 0, 0, 32, 32, QStringLiteral("#ffffff") });
        cursorOwn.push_back(c.ownMsPerPicture);
        cursorServer.push_back(c.serverMsPerPicture);
        cursorRate.push_back(c.picturesPerSecond);
        std::printf(
            "round %d: x11 %.2f ms + server %.2f ms at %.1f fps | portal %.2f ms + server %.2f ms at %.1f fps"
            " | dma-buf %.2f ms + server %.2f ms at %.1f fps | cursor only %.2f ms + server %.2f ms at %.1f fps\n",
            round + 1, a.ownMsPerPicture, a.serverMsPerPicture, a.picturesPerSecond, b.ownMsPerPicture,
            b.serverMsPerPicture, b.picturesPerSecond, d.ownMsPerPicture, d.serverMsPerPicture, d.picturesPerSecond,
            c.ownMsPerPicture, c.serverMsPerPicture, c.picturesPerSecond);
        std::fflush(stdout);
    }
    std::printf("median CPU per picture, 1920x1080 at 30 fps, %d rounds of %.0f s:\n", rounds, seconds);
    std::printf("  x11:    ours %.2f ms, X server %.2f ms, %.1f pictures/s\n", median(x11Own), median(x11Server),
        median(x11Rate));
    std::printf("  portal: ours %.2f ms, PipeWire + producer %.2f ms, %.1f pictures/s\n", median(portalOwn),
        median(portalServerMs), median(portalRate));
    std::printf("  portal, linear DMA-BUF (memfd): ours %.2f ms, PipeWire + producer %.2f ms, %.1f pictures/s\n",
        median(dmaBufOwn), median(dmaBufServerMs), median(dmaBufRate));
    std::printf("  portal, only the cursor moving: ours %.2f ms, PipeWire + producer %.2f ms, %.1f pictures/s\n",
        median(cursorOwn), median(cursorServer), median(cursorRate));
    painter->kill();
    painter->waitForFinished(2000);
    return 0;
}

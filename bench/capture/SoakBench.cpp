// The always-on recorder left running: 1080p30 of a changing screen with system audio on a private
// Xvfb and PulseAudio, a save every 70 s, for as many minutes as asked. Every 10 s it prints the
// resident memory, open files, threads and the ring's size on disk; at the end the A/V offset of
// every clip, from a white flash painted at the moment a click is played, every 10 s. The offset
// includes the playback stream's latency (printed beside it); its change from the first clip to the
// last is the drift. With --microphone the microphone is on too, mixed with the system audio, and
// the click is heard through it alone: a second null sink whose monitor, remapped, is the
// microphone, so the offset is the microphone's.
//
//     soak_bench MINUTES [SAVE_EVERY_SECONDS] [--microphone]
//
// See bench/README.md.

#include "BenchDesktop.h"
#include "ClipProbe.h"
#include "capture/CaptureEngine.h"
#include "devices/MicCapture.h"
#include "platform/pulse/PulseMicrophones.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"

#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <vector>

using namespace BenchDesktop;

namespace {

int countEntries(const QString& path)
{
    return int(QDir(path).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size());
}

int threadCount()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("Threads:")) return line.mid(8).trimmed().toInt();
    return 0;
}

double folderMegabytes(const QString& path)
{
    qint64 bytes = 0;
    for (QDirIterator it(path, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        it.next();
        bytes += it.fileInfo().size();
    }
    return bytes / 1e6;
}

// A white square in the top-left corner, shown for a moment: the picture half of the sync mark.
class Flasher {
public:
    Flasher()
    {
        connection = xcb_connect(nullptr, nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        window = xcb_generate_id(connection);
        const uint32_t values[] = { 0xffffff, 1 };
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 200, 200, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_flush(connection);
    }
    ~Flasher() { xcb_disconnect(connection); }
    void show(bool on)
    {
        if (on) {
            const uint32_t above = XCB_STACK_MODE_ABOVE;
            xcb_map_window(connection, window);
            xcb_configure_window(connection, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        } else
            xcb_unmap_window(connection, window);
        xcb_flush(connection);
    }

private:
    xcb_connection_t* connection = nullptr;
    xcb_window_t window = 0;
};

// The sound half of the sync mark: a playback stream on the null sink that is filled only when the
// sink asks, with a buffer of 20 ms, so nothing can pile up ahead of the sink over hours (a pipe
// to pacat fed by the clock did, and its backlog changed after every stall). A click starts at the
// next sample the sink asks for; the stream's own latency at that moment is kept with it, so the
// offset can be read without the playback path.
class Clicker {
public:
    static constexpr int rate = 48000;
    explicit Clicker(const char* sink)
    {
        mainloop = pa_threaded_mainloop_new();
        context = pa_context_new(pa_threaded_mainloop_get_api(mainloop), "soak clicker");
        pa_context_set_state_callback(
            context,
            [](pa_context*, void* m) { pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(m), 0); },
            mainloop);
        pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
        pa_threaded_mainloop_start(mainloop);
        pa_threaded_mainloop_lock(mainloop);
        while (pa_context_get_state(context) != PA_CONTEXT_READY && PA_CONTEXT_IS_GOOD(pa_context_get_state(context)))
            pa_threaded_mainloop_wait(mainloop);
        const pa_sample_spec spec { PA_SAMPLE_FLOAT32LE, rate, 1 };
        stream = pa_stream_new(context, "soak clicks", &spec, nullptr);
        pa_stream_set_write_callback(
            stream, [](pa_stream*, size_t bytes, void* self) { static_cast<Clicker*>(self)->write(bytes); }, this);
        pa_stream_set_underflow_callback(
            stream, [](pa_stream*, void* self) { ++static_cast<Clicker*>(self)->underflows; }, this);
        pa_buffer_attr attr;
        attr.maxlength = uint32_t(-1);
        attr.tlength = uint32_t(pa_usec_to_bytes(20'000, &spec));
        attr.prebuf = uint32_t(-1);
        attr.minreq = uint32_t(-1);
        attr.fragsize = uint32_t(-1);
        pa_stream_connect_playback(stream, sink, &attr,
            pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE),
            nullptr, nullptr);
        pa_threaded_mainloop_unlock(mainloop);
    }
    ~Clicker()
    {
        pa_threaded_mainloop_stop(mainloop);
        pa_stream_unref(stream);
        pa_context_unref(context);
        pa_threaded_mainloop_free(mainloop);
    }
    // Starts a click; returns the playback latency the stream reports at that moment, in ms.
    double click()
    {
        pa_threaded_mainloop_lock(mainloop);
        clickLeft = rate / 20;
        pa_usec_t latency = 0;
        int negative = 0;
        const bool known = pa_stream_get_latency(stream, &latency, &negative) == 0;
        pa_threaded_mainloop_unlock(mainloop);
        return known ? (negative ? -1.0 : 1.0) * double(latency) / 1000 : std::nan("");
    }
    int underflowCount() const { return underflows; }

private:
    void write(size_t bytes)
    {
        std::vector<float> samples(bytes / sizeof(float));
        for (float& v : samples) {
            if (clickLeft > 0) {
                v = 0.5f * float(std::sin(2 * M_PI * 1000.0 * double(written) / rate));
                --clickLeft;
            }
            ++written;
        }
        pa_stream_write(stream, samples.data(), samples.size() * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
    }

    pa_threaded_mainloop* mainloop = nullptr;
    pa_context* context = nullptr;
    pa_stream* stream = nullptr;
    int64_t written = 0;
    int clickLeft = 0;
    std::atomic<int> underflows = 0;
};

// Flash onsets in the picture and click onsets in the sound, paired; the median of sound minus
// picture, in ms. NaN when nothing pairs.
double avOffsetMs(const QString& clip, int* pairs, int* decodeErrors)
{
    const ClipProbe probe = ClipProbe::read(clip);
    *decodeErrors = probe.decodeErrors;

    std::vector<double> flashes, clicks;
    bool lit = false;
    for (const auto& f : probe.frames) {
        const bool now = f.cornerLuma > 200;
        if (now && !lit) flashes.push_back(f.seconds);
        lit = now;
    }
    double lastLoud = -10;
    for (size_t i = 0; i < probe.audio.size(); ++i) {
        if (std::abs(probe.audio[i]) < 0.2f) continue;
        const double t = probe.audioStart + double(i) / std::max(1, probe.audioSampleRate);
        if (t - lastLoud > 0.5) clicks.push_back(t);
        lastLoud = t;
    }
    // The click reaches the null sink's monitor later than the flash reaches the screen, by the
    // playback stream's buffer: what matters is that this stays the same over hours.
    std::vector<double> offsets;
    for (double f : flashes) {
        const auto click = std::find_if(clicks.begin(), clicks.end(), [f](double c) { return c > f - 0.5; });
        if (click != clicks.end() && *click - f < 3.0) offsets.push_back((*click - f) * 1000);
    }
    *pairs = int(offsets.size());
    if (offsets.empty()) return std::nan("");
    std::sort(offsets.begin(), offsets.end());
    return offsets[offsets.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--paint") return paintForever();
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const bool microphone = args.removeAll(QStringLiteral("--microphone")) > 0;
    const double minutes = !args.isEmpty() ? args[0].toDouble() : 0;
    const double saveEvery = args.size() > 1 ? args[1].toDouble() : 70;
    if (!(minutes > 0) || !(saveEvery > 0)) {
        std::fprintf(stderr, "usage: soak_bench MINUTES [SAVE_EVERY_SECONDS] [--microphone]\n");
        return 2;
    }
    TestDesktop desktop;
    if (const QString error = desktop.start({ .width = width, .height = height, .audio = true }); !error.isEmpty()) {
        std::fprintf(stderr, "no desktop: %s\n", qPrintable(error));
        return 1;
    }
    // The microphone: a sink of its own, whose monitor remapped is a source like a headset's.
    if (microphone
        && (desktop.run(QStringLiteral("pactl"),
                { QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=micsink"), QStringLiteral("rate=48000"), QStringLiteral("channels=1") })
                != 0
            || desktop.run(QStringLiteral("pactl"),
                   { QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                       QStringLiteral("master=micsink.monitor"), QStringLiteral("source_name=benchmic") })
                != 0)) {
        std::fprintf(stderr, "cannot make the microphone\n");
        return 1;
    }
    std::unique_ptr<QProcess> painter = startPainter();
    Flasher flasher;
    Clicker clicker(microphone ? "micsink" : "vsink");
    QTemporaryDir out;

    CaptureEngine engine(std::make_shared<X11CaptureBackend>(), std::make_shared<PulseSystemAudio>());
    engine.setPreviewEnabled(false);
    SegmentedRecorder recorder;
    recorder.configure(width, height, 20, 10, 30);
    recorder.setAudioEnabled(true);
    engine.setRecorder(&recorder);
    std::vector<QString> clips;
    int failures = 0;
    recorder.onFinished = [&clips](const QString& path) { clips.push_back(path); };
    recorder.onError = [&failures](const QString& text) {
        ++failures;
        std::fprintf(stderr, "save failed: %s\n", qPrintable(text));
    };
    // Wired as the session controller wires it.
    MicCapture mic(std::make_shared<PulseMicrophones>());
    mic.onSample = [&recorder](const AudioBuffer& b) { recorder.ingestAudio(b, AudioMixer::Input::microphone); };
    QObject::connect(&mic, &MicCapture::isRunningChanged, [&] {
        if (!mic.isRunning()) recorder.endAudioInput(AudioMixer::Input::microphone);
    });
    if (microphone) {
        mic.start(QStringLiteral("benchmic"));
        while (!mic.isRunning() && !mic.errorMessage())
            runEventLoopFor(0.05);
        if (!mic.isRunning()) {
            std::fprintf(stderr, "no microphone: %s\n", qPrintable(mic.errorMessage().value_or(QString())));
            return 1;
        }
    }
    bool listed = false;
    engine.refreshAvailableContent([&listed] { listed = true; });
    while (!listed)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    engine.startStream(width, height, 30, true, false, true);
    if (!engine.isStreaming()) {
        std::fprintf(stderr, "no stream: %s\n", qPrintable(engine.errorMessage().value_or(QString())));
        return 1;
    }
    recorder.armBuffering();

    std::printf("minute,rss_MB,fds,threads,ring_MB,clips\n");
    const auto started = std::chrono::steady_clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    double nextFlash = 5, nextSample = 10, nextSave = saveEvery, flashOffAt = -1;
    int saves = 0;
    recorder.startRecording(out.filePath(QStringLiteral("soak.mp4")));
    std::vector<double> rssAfterTen;
    std::vector<double> playbackLatencies;
    while (elapsed() < minutes * 60) {
        const double t = elapsed();
        const bool flash = t >= nextFlash;
        if (flash) {
            flasher.show(true);
            playbackLatencies.push_back(clicker.click());
            flashOffAt = t + 0.15;
            nextFlash += 10;
        }
        if (flashOffAt > 0 && t >= flashOffAt) {
            flasher.show(false);
            flashOffAt = -1;
        }
        if (t >= nextSave) {
            recorder.stopRecording();
            recorder.startRecording(out.filePath(QStringLiteral("soak.mp4"))); // " (2)", " (3)"...
            ++saves;
            nextSave += saveEvery;
        }
        if (t >= nextSample) {
            const double rss = residentMegabytes().first;
            if (t >= 600) rssAfterTen.push_back(rss);
            std::printf("%.2f,%.1f,%d,%d,%.1f,%zu\n", t / 60, rss, countEntries(QStringLiteral("/proc/self/fd")),
                threadCount(), folderMegabytes(recorder.segmentsDirectory()), clips.size());
            std::fflush(stdout);
            nextSample += 10;
        }
        runEventLoopFor(0.01);
    }
    recorder.stopRecording();
    while (int(clips.size()) + failures < saves + 1 && elapsed() < minutes * 60 + 20)
        runEventLoopFor(0.05);
    engine.stopStream();
    mic.stop();
    painter->kill();
    painter->waitForFinished(1000);

    std::printf("saves %d, clips %zu, failures %d, peak rss %.1f MB\n", saves + 1, clips.size(), failures,
        residentMegabytes().second);
    if (!rssAfterTen.empty()) {
        const auto [low, high] = std::minmax_element(rssAfterTen.begin(), rssAfterTen.end());
        std::printf("rss after 10 min: %.1f to %.1f MB (%.1f%% around the middle)\n", *low, *high,
            100 * (*high - *low) / (*high + *low));
    }
    // Every clip's offset, so that a drift shows as a trend and a step as a step.
    std::vector<double> offsets;
    for (size_t i = 0; i < clips.size(); ++i) {
        int pairs = 0, errors = 0;
        offsets.push_back(avOffsetMs(clips[i], &pairs, &errors));
        std::printf(
            "clip %zu: a/v offset %.1f ms over %d marks, %d decode errors\n", i + 1, offsets.back(), pairs, errors);
    }
    std::sort(playbackLatencies.begin(), playbackLatencies.end());
    if (!playbackLatencies.empty())
        std::printf("playback latency at the clicks: %.1f to %.1f ms (median %.1f); %d underflows\n",
            playbackLatencies.front(), playbackLatencies.back(), playbackLatencies[playbackLatencies.size() / 2],
            clicker.underflowCount());
    if (microphone && mic.errorMessage()) std::printf("microphone: %s\n", qPrintable(*mic.errorMessage()));
    if (!offsets.empty())
        std::printf("a/v offset (%s, sound minus picture, median of each clip): first %.1f ms, last %.1f ms, drift "
                    "%.1f ms\n",
            microphone ? "microphone" : "system audio", offsets.front(), offsets.back(),
            offsets.back() - offsets.front());
    return failures == 0 ? 0 : 1;
}

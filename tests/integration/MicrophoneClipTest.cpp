#include "../recorder/ClipProbe.h"
#include "CaptureTestSupport.h"
#include "X11TestClient.h"
#include "devices/MicCapture.h"
#include "platform/pulse/PulseMicrophones.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recorder/SegmentedRecorder.h"
#include "support/TestDesktop.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

// The microphone on a private PulseAudio, through the gain control and the mix into a real clip,
// wired as the session controller wires it; system audio is a tone played into the null sink.
//
// The microphone is a headset made of a second null sink and a source remapped from its monitor
// (16-bit mono), with a quiet 440 Hz tone played into it: it delivers in real time like a real
// microphone. The harness's sine source is listed but not recorded here: it renders two seconds
// ahead of the clock in fixed blocks, which no capture device does.
using namespace CaptureTestSupport;

namespace {

constexpr QSize screen(320, 192);
constexpr double bufferSeconds = 1.0;
constexpr double quietVoice = 0.25; // the headset's tone: the gain control brings it up

void wait(double s)
{
    spinUntil([] { return false; }, int(s * 1000));
}

struct Session {
    TestDesktop desktop;
    QString error;
    std::unique_ptr<X11TestClient> client;
    std::unique_ptr<CaptureEngine> engine;
    std::unique_ptr<SegmentedRecorder> recorder;
    std::unique_ptr<MicCapture> mic;
    QTemporaryDir dir;
    QProcess voice;
    QString saved, failed;
    int64_t pressed = 0, released = 0;

    // The level of each buffer the microphone handed on: its time and its peak after the gain.
    std::mutex mutex;
    std::vector<std::pair<int64_t, float>> levels; // guarded by mutex

    explicit Session(bool systemAudio)
    {
        error = desktop.start({ .width = screen.width(), .height = screen.height(), .audio = true });
        if (!error.isEmpty()) return;
        client = std::make_unique<X11TestClient>();
        const xcb_window_t window
            = client->create({ .rect = QRect(QPoint(0, 0), screen), .wmClass = "Chart", .title = "chart" });
        client->fill(window, QRect(QPoint(0, 0), screen), QColor(40, 90, 160));
        engine = std::make_unique<CaptureEngine>(
            std::make_shared<X11CaptureBackend>(), std::make_shared<PulseSystemAudio>());
        recorder = std::make_unique<SegmentedRecorder>();
        recorder->onFinished = [this](const QString& path) { saved = path; };
        recorder->onError = [this](const QString& text) { failed = text; };
        engine->setRecorder(recorder.get());
        engine->setPreviewEnabled(false);
        refresh(*engine);
        recorder->configure(screen.width(), screen.height(), 2, bufferSeconds, 30);
        recorder->setAudioEnabled(true);

        // As the controller does it: levelled buffers into the mix, a stopped microphone out of it.
        mic = std::make_unique<MicCapture>(std::make_shared<PulseMicrophones>());
        mic->onSample = [this](const AudioBuffer& b) {
            float peak = 0;
            if (b.format == AudioBuffer::SampleFormat::Int16) {
                const auto* s = reinterpret_cast<const int16_t*>(b.data.constData());
                for (int i = 0; i < b.frameCount() * b.channels; ++i)
                    peak = std::max(peak, std::fabs(s[i] / 32768.0f));
            } else {
                const auto* s = reinterpret_cast<const float*>(b.data.constData());
                for (int i = 0; i < b.frameCount() * b.channels; ++i)
                    peak = std::max(peak, std::fabs(s[i]));
            }
            // A buffer shorter than two periods of the tone need not hold its peak.
            if (b.frameCount() * 440 >= 2 * b.sampleRate) {
                std::lock_guard lock(mutex);
                levels.emplace_back(b.pts.value, peak);
            }
            recorder->ingestAudio(b, AudioMixer::Input::microphone);
        };
        QObject::connect(mic.get(), &MicCapture::isRunningChanged, [this] {
            if (!mic->isRunning()) recorder->endAudioInput(AudioMixer::Input::microphone);
        });
        // The headset: its own sink, a tone playing into it, and the source made from its monitor.
        if (desktop.run(QStringLiteral("pactl"),
                { QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=headsetsink"), QStringLiteral("rate=48000"), QStringLiteral("channels=1"),
                    QStringLiteral("format=s16le") })
                != 0
            || desktop.run(QStringLiteral("pactl"),
                   { QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                       QStringLiteral("master=headsetsink.monitor"), QStringLiteral("source_name=headset"),
                       QStringLiteral("source_properties=device.description=Headset") })
                != 0) {
            error = QStringLiteral("cannot make the headset");
            return;
        }
        voice.start(QStringLiteral("paplay"),
            { QStringLiteral("--device=headsetsink"),
                writeTone(dir.filePath(QStringLiteral("voice.wav")), 48000, 20.0, 440, quietVoice) });
        mic->start(QStringLiteral("headset"));
        if (!spinUntil([this] { return mic->isRunning() || mic->errorMessage(); }, 5000) || !mic->isRunning()) {
            error = mic->errorMessage().value_or(QStringLiteral("the microphone did not start"));
            return;
        }
        engine->startStream(screen.width(), screen.height(), 30, false, false, systemAudio);
        if (!engine->isStreaming()) error = engine->errorMessage().value_or(QStringLiteral("no stream"));
        recorder->armBuffering();
    }
    ~Session()
    {
        voice.kill();
        voice.waitForFinished();
        if (mic) mic.reset();
        if (engine) engine->stopStream();
    }

    QString record(const std::function<void()>& during)
    {
        pressed = monotonicNanoseconds();
        recorder->startRecording(QDir::temp().filePath("unused.mp4"));
        during();
        released = monotonicNanoseconds();
        recorder->stopRecording();
        spinUntil([&] { return !saved.isEmpty() || !failed.isEmpty(); }, 20000);
        return saved;
    }

    // Until the headset's tone comes through.
    bool waitForVoice()
    {
        return spinUntil(
            [this] {
                std::lock_guard lock(mutex);
                return !levels.empty() && levels.back().second > quietVoice / 2;
            },
            5000);
    }

    // The mean level the microphone handed on between two capture times.
    double levelBetween(int64_t from, int64_t to)
    {
        std::lock_guard lock(mutex);
        double sum = 0;
        int n = 0;
        for (const auto& [pts, peak] : levels)
            if (pts >= from && pts < to) {
                sum += peak;
                ++n;
            }
        return n > 0 ? sum / n : 0;
    }
};

// The clip's samples of the capture clock's stretch [from, to): the clip ends at the release.
struct Window {
    size_t begin = 0, end = 0;
    Window(const ClipProbe& probe, const Session& s, int64_t from, int64_t to)
    {
        auto index = [&](int64_t t) {
            const double clipTime = probe.videoEnd - (s.released - t) / 1e9;
            const double i = (clipTime - probe.audioStart) * probe.audioSampleRate;
            return size_t(std::clamp(i, 0.0, double(probe.audio.size())));
        };
        begin = index(from);
        end = index(to);
    }
    // The amplitude of `frequency` in the clip over the window.
    double amplitude(const ClipProbe& probe, double frequency) const
    {
        double re = 0, im = 0;
        for (size_t i = begin; i < end; ++i) {
            const double phase = 2 * M_PI * frequency * double(i) / probe.audioSampleRate;
            re += probe.audio[i] * std::cos(phase);
            im += probe.audio[i] * std::sin(phase);
        }
        return end > begin ? 2 * std::hypot(re, im) / double(end - begin) : 0;
    }
};

int64_t ns(double s)
{
    return int64_t(s * 1e9);
}

} // namespace

TEST(MicrophoneClip, TheMicrophoneLandsInTheClipAtTheGainControlsLevelInStepWithThePicture)
{
    Session s(false);
    ASSERT_EQ(s.error, QString());
    ASSERT_TRUE(s.waitForVoice());
    wait(1.2); // the ring fills
    const QString clip = s.record([] { wait(5.0); });
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    ASSERT_FALSE(probe.frames.empty());
    ASSERT_GT(probe.audio.size(), 44100u);
    EXPECT_NEAR(probe.audioSeconds, probe.videoEnd - probe.frames.front().seconds, 0.05);

    // Every microphone is offered, no monitor of an output is.
    std::vector<QString> offered;
    for (const MicrophoneDevice& d : s.mic->availableDevices())
        offered.push_back(d.uniqueID);
    EXPECT_EQ(offered, std::vector<QString>({ QStringLiteral("vmic"), QStringLiteral("headset") }));

    // The headset's quiet voice, raised by the gain control as it goes: the clip holds the tone at
    // the level the gain control gave it at each moment.
    const std::pair<int64_t, int64_t> early(s.pressed, s.pressed + ns(0.8));
    const std::pair<int64_t, int64_t> late(s.released - ns(1.2), s.released - ns(0.4));
    for (const auto& [from, to] : { early, late }) {
        const double levelled = s.levelBetween(from, to);
        const double inClip = Window(probe, s, from, to).amplitude(probe, 440);
        EXPECT_GT(levelled, quietVoice * 1.1);
        EXPECT_NEAR(inClip, levelled, 0.05 * levelled);
    }
    EXPECT_GT(s.levelBetween(late.first, late.second), s.levelBetween(early.first, early.second) + 0.03);
}

TEST(MicrophoneClip, SystemAudioAndTheMicrophoneAreMixedAndAVanishedMicrophoneLeavesSilence)
{
    Session s(true);
    ASSERT_EQ(s.error, QString());
    QTemporaryDir dir;
    const QString tone = writeTone(dir.filePath(QStringLiteral("tone.wav")), 48000, 9.0, 1000, 0.5);
    QProcess player;
    player.start(QStringLiteral("paplay"), { QStringLiteral("--device=vsink"), tone });
    ASSERT_TRUE(player.waitForStarted());
    ASSERT_TRUE(s.waitForVoice());
    wait(1.2);
    int64_t unloaded = 0;
    const QString clip = s.record([&] {
        wait(2.5);
        unloaded = monotonicNanoseconds();
        ASSERT_EQ(s.desktop.run(QStringLiteral("pactl"),
                      { QStringLiteral("unload-module"), QStringLiteral("module-remap-source") }),
            0);
        wait(2.5);
    });
    player.kill();
    player.waitForFinished();

    // The user hears of it, and the clip is saved all the same, as long as its picture.
    ASSERT_TRUE(spinUntil([&] { return s.mic->errorMessage().has_value(); }, 3000));
    EXPECT_TRUE(s.mic->errorMessage()->contains(QStringLiteral("stopped"))) << s.mic->errorMessage()->toStdString();
    EXPECT_FALSE(s.mic->isRunning());
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    ASSERT_FALSE(probe.frames.empty());
    EXPECT_NEAR(probe.audioSeconds, probe.videoEnd - probe.frames.front().seconds, 0.05);

    // Both tones while both sources ran, the system's alone after the microphone went; never clipped.
    const Window both(probe, s, s.pressed + ns(0.3), unloaded - ns(0.3));
    const Window after(probe, s, unloaded + ns(0.6), s.released - ns(0.3));
    EXPECT_GT(both.amplitude(probe, 440), quietVoice * 1.2);
    EXPECT_GT(both.amplitude(probe, 1000), 0.3);
    EXPECT_LT(both.amplitude(probe, 700), 0.02);
    EXPECT_LT(after.amplitude(probe, 440), 0.02);
    EXPECT_GT(after.amplitude(probe, 1000), 0.4);
    float peak = 0;
    for (float v : probe.audio)
        peak = std::max(peak, std::fabs(v));
    EXPECT_LE(peak, 1.02f);
}

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
#include <optional>

// The microphone on a private PulseAudio, through the gain control and the mix into a real clip,
// wired as the session controller wires it; system audio is a tone played into the null sink.
//
// The microphone is the harness's sine source (440 Hz, peak 0.5, float). It renders two seconds
// ahead of the clock and delivers them at once, so its sound may run up to two seconds past a
// moment on the capture clock: the windows below keep clear of that.
using namespace CaptureTestSupport;

namespace {

constexpr QSize screen(320, 192);
constexpr double bufferSeconds = 1.0;
constexpr double sinePeak = 0.5; // the sine source's own level
const QStringList sineSource { QStringLiteral("module-sine-source"), QStringLiteral("source_name=vmic"),
    QStringLiteral("rate=44100"), QStringLiteral("frequency=440") };

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
        mic->start(QStringLiteral("vmic"));
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

    // Until the microphone's tone comes through.
    bool waitForVoice()
    {
        return spinUntil(
            [this] {
                std::lock_guard lock(mutex);
                return !levels.empty() && levels.back().second > sinePeak / 2;
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
    // The amplitude of `frequency` in the clip over the window: the mean over blocks of 46 ms, each
    // through a Hann window, so that a jump of phase (an overlap dropped) does not cancel it out.
    double amplitude(const ClipProbe& probe, double frequency) const
    {
        constexpr size_t block = 2048;
        double sum = 0;
        int blocks = 0;
        for (size_t from = begin; from + block <= end; from += block, ++blocks) {
            double re = 0, im = 0, weight = 0;
            for (size_t i = from; i < from + block; ++i) {
                const double w = 0.5 - 0.5 * std::cos(2 * M_PI * double(i - from) / block);
                const double phase = 2 * M_PI * frequency * double(i) / probe.audioSampleRate;
                re += w * probe.audio[i] * std::cos(phase);
                im += w * probe.audio[i] * std::sin(phase);
                weight += w;
            }
            sum += 2 * std::hypot(re, im) / weight;
        }
        return blocks > 0 ? sum / blocks : 0;
    }
    // The largest magnitude in the clip over the window.
    float peak(const ClipProbe& probe) const
    {
        float p = 0;
        for (size_t i = begin; i < end; ++i)
            p = std::max(p, std::fabs(probe.audio[i]));
        return p;
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
    wait(2.5); // the ring fills, and the sound the source gave before the first picture is past
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
    EXPECT_EQ(offered, std::vector<QString>({ QStringLiteral("vmic") }));

    // The clip holds the tone at the level the gain control gave it at each moment: a little above
    // the source's own, as the gain creeps up toward the target.
    for (const auto& [from, to] :
        { std::pair(s.pressed, s.pressed + ns(1.5)), std::pair(s.released - ns(2.0), s.released - ns(0.3)) }) {
        const double levelled = s.levelBetween(from, to);
        EXPECT_GE(levelled, sinePeak - 0.005);
        const Window window(probe, s, from, to);
        // AAC rings a little around a sine's crests, so the decoded peak is allowed more than the
        // tone's amplitude.
        EXPECT_NEAR(window.peak(probe), levelled, 0.05 * levelled);
        EXPECT_NEAR(window.amplitude(probe, 440), levelled, 0.03 * levelled);
    }
}

TEST(MicrophoneClip, SystemAudioIsMixedInAndAMicrophoneUnloadedLeavesSilenceUntilItIsLoadedAgain)
{
    Session s(true);
    ASSERT_EQ(s.error, QString());
    QTemporaryDir dir;
    const QString tone = writeTone(dir.filePath(QStringLiteral("tone.wav")), 48000, 25.0, 1000, 0.5);
    QProcess player;
    player.start(QStringLiteral("paplay"), { QStringLiteral("--device=vsink"), tone });
    ASSERT_TRUE(player.waitForStarted());
    ASSERT_TRUE(s.waitForVoice());
    wait(2.5);
    int64_t unloaded = 0, reloaded = 0;
    std::optional<QString> lost;
    bool resumed = false;
    const QString clip = s.record([&] {
        wait(2.5);
        unloaded = monotonicNanoseconds();
        s.desktop.run(
            QStringLiteral("pactl"), { QStringLiteral("unload-module"), QStringLiteral("module-sine-source") });
        // The user hears of it at once; what the source gave ahead of the clock still plays out.
        spinUntil([&] { return s.mic->errorMessage().has_value(); }, 3000);
        lost = s.mic->errorMessage();
        wait(double(unloaded + ns(4.0) - monotonicNanoseconds()) / 1e9);
        reloaded = monotonicNanoseconds();
        s.desktop.run(QStringLiteral("pactl"), QStringList { QStringLiteral("load-module") } + sineSource);
        resumed = spinUntil([&] { return s.mic->isRunning() && !s.mic->errorMessage(); }, 5000);
        wait(4.0);
    });
    player.kill();
    player.waitForFinished();

    ASSERT_TRUE(lost.has_value());
    EXPECT_TRUE(lost->contains(QStringLiteral("stopped"))) << lost->toStdString();
    EXPECT_TRUE(resumed);
    // The clip is saved all the same, as long as its picture.
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    ASSERT_FALSE(probe.frames.empty());
    EXPECT_NEAR(probe.audioSeconds, probe.videoEnd - probe.frames.front().seconds, 0.05);

    // Both tones while both sources ran, the system's alone while the microphone was gone, the
    // microphone's again once it was back; never clipped. (After a source is loaded this PulseAudio
    // delivers the null sink's monitor in bursts up to two seconds late, which the mix does not
    // wait for: the system's tone is not looked for at the end.)
    const Window both(probe, s, s.pressed + ns(0.3), unloaded - ns(0.3));
    const Window gone(probe, s, unloaded + ns(2.3), reloaded - ns(0.1));
    const Window back(probe, s, s.released - ns(2.5), s.released - ns(0.5));
    EXPECT_GT(both.amplitude(probe, 440), sinePeak * 0.8);
    EXPECT_GT(both.amplitude(probe, 1000), 0.4);
    EXPECT_LT(both.amplitude(probe, 700), 0.02);
    EXPECT_LT(gone.amplitude(probe, 440), 0.02);
    EXPECT_GT(gone.amplitude(probe, 1000), 0.4);
    // The system's tone may come back in this window too, and the limiter then takes some off both.
    EXPECT_GT(back.amplitude(probe, 440), sinePeak * 0.6);
    float peak = 0;
    for (float v : probe.audio)
        peak = std::max(peak, std::fabs(v));
    EXPECT_LE(peak, 1.02f);
}

TEST(MicrophoneClip, TheMicrophoneComesBackIntoTheClipAfterTheSoundServerRestarts)
{
    Session s(false);
    ASSERT_EQ(s.error, QString());
    ASSERT_TRUE(s.waitForVoice());
    wait(1.5);
    QString restartError;
    std::optional<QString> lost;
    bool resumed = false;
    const QString clip = s.record([&] {
        wait(1.0);
        restartError = s.desktop.restartSound();
        spinUntil([&] { return s.mic->errorMessage().has_value(); }, 3000);
        lost = s.mic->errorMessage();
        // Nobody touches the settings: the microphone is opened again on the new server by itself.
        resumed = spinUntil([&] { return s.mic->isRunning() && !s.mic->errorMessage(); }, 8000);
        wait(4.5);
    });
    ASSERT_EQ(restartError, QString());
    ASSERT_TRUE(lost.has_value()) << "the loss was not said";
    EXPECT_TRUE(resumed) << s.mic->errorMessage().value_or(QString()).toStdString();
    ASSERT_FALSE(clip.isEmpty()) << s.failed.toStdString();
    const ClipProbe probe = ClipProbe::read(clip);
    EXPECT_EQ(probe.decodeErrors, 0);
    // The tone before the restart, and again at the end: the later part of the clip has sound.
    const Window before(probe, s, s.pressed + ns(0.2), s.pressed + ns(0.9));
    const Window back(probe, s, s.released - ns(2.0), s.released - ns(0.3));
    EXPECT_GT(before.amplitude(probe, 440), sinePeak * 0.6);
    EXPECT_GT(back.amplitude(probe, 440), sinePeak * 0.6);
}

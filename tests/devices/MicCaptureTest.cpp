#include "devices/MicCapture.h"

#include "devices/ScriptedMicrophones.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <cmath>

// What the user sees of the microphone: which device opens, the words when none can, levelled
// buffers while it runs, and what happens when it is pulled out.
namespace {

struct Rig {
    std::shared_ptr<ScriptedMicrophones> system = std::make_shared<ScriptedMicrophones>();
    std::unique_ptr<MicCapture> mic;
    std::mutex mutex;
    std::vector<AudioBuffer> received; // guarded by mutex

    Rig()
    {
        system->devices = { { QStringLiteral("usb"), QStringLiteral("USB Headset") },
            { QStringLiteral("builtin"), QStringLiteral("Built-in Audio") } };
        system->defaultID = QStringLiteral("builtin");
        mic = std::make_unique<MicCapture>(system);
        mic->onSample = [this](const AudioBuffer& b) {
            std::lock_guard lock(mutex);
            received.push_back(b);
        };
    }
    // Lets the queue and then the main thread catch up.
    void settle()
    {
        mic->waitUntilIdle();
        spinFor(20);
    }
};

AudioBuffer quietTone()
{
    AudioBuffer b;
    b.format = AudioBuffer::SampleFormat::Float32;
    b.sampleRate = 48000;
    for (int i = 0; i < 960; ++i) {
        const auto s = float(0.35 * std::sin(2 * M_PI * 440 * i / 48000.0));
        b.data.append(reinterpret_cast<const char*>(&s), sizeof s);
    }
    b.pts = MediaTime::fromNanoseconds(1'000'000'000);
    return b;
}

} // namespace

TEST(MicCapture, OpensTheChosenDeviceOrTheDefaultAndNeverReopensTheOneAlreadyOpen)
{
    Rig rig;
    rig.mic->start(QStringLiteral("usb"));
    rig.settle();
    EXPECT_TRUE(rig.mic->isRunning());
    EXPECT_EQ(rig.mic->currentDeviceID(), QStringLiteral("usb"));
    EXPECT_EQ(rig.mic->availableDevices().size(), 2u);

    // Started again with the same device: nothing happens, not even a new gain.
    rig.mic->start(QStringLiteral("usb"));
    rig.settle();
    EXPECT_EQ(rig.system->openedIDs(), std::vector<QString>({ QStringLiteral("usb") }));

    // A device that has gone: the default one replaces it, silently, without a gap in isRunning.
    bool stoppedOnTheWay = false;
    QObject::connect(rig.mic.get(), &MicCapture::isRunningChanged, [&] { stoppedOnTheWay |= !rig.mic->isRunning(); });
    rig.mic->start(QStringLiteral("unplugged-yesterday"));
    rig.settle();
    EXPECT_EQ(rig.system->openedIDs(), std::vector<QString>({ QStringLiteral("usb"), QStringLiteral("builtin") }));
    EXPECT_TRUE(rig.system->opens[0]->closed);
    EXPECT_TRUE(rig.mic->isRunning());
    EXPECT_FALSE(stoppedOnTheWay);
    EXPECT_FALSE(rig.mic->errorMessage());

    // Each buffer reaches onSample levelled: a new opening starts at unity and creeps up.
    rig.system->last()->onBuffer(quietTone());
    {
        std::lock_guard lock(rig.mutex);
        ASSERT_EQ(rig.received.size(), 1u);
        const auto* s = reinterpret_cast<const float*>(rig.received[0].data.constData());
        float peak = 0;
        for (int i = 0; i < rig.received[0].frameCount(); ++i)
            peak = std::max(peak, std::fabs(s[i]));
        EXPECT_NEAR(peak, 0.35 * 1.0025, 1e-3);
    }

    rig.mic->stop();
    rig.settle();
    EXPECT_FALSE(rig.mic->isRunning());
    EXPECT_TRUE(rig.system->opens[1]->closed);
    EXPECT_FALSE(rig.mic->currentDeviceID());
}

TEST(MicCapture, SaysWhyWhenNoMicrophoneCanBeOpenedOrTheOpenOneIsPulledOut)
{
    Rig rig;
    rig.system->failOpenWith = QStringLiteral("cannot record from PulseAudio: Access denied");
    rig.mic->start(std::nullopt);
    rig.settle();
    EXPECT_EQ(rig.mic->errorMessage(),
        QStringLiteral("Couldn't open microphone: cannot record from PulseAudio: Access denied"));
    EXPECT_FALSE(rig.mic->isRunning());

    // The next start clears the message.
    rig.system->failOpenWith.clear();
    rig.mic->start(std::nullopt);
    rig.settle();
    EXPECT_FALSE(rig.mic->errorMessage());
    EXPECT_EQ(rig.mic->currentDeviceID(), QStringLiteral("builtin"));

    // Pulled out while recording: a message with its name, and it stops; nothing else is opened
    // in its place.
    auto builtin = [&](bool listed) {
        std::lock_guard lock(rig.system->mutex);
        rig.system->devices.resize(1);
        if (listed) rig.system->devices.push_back({ QStringLiteral("builtin"), QStringLiteral("Built-in Audio") });
    };
    builtin(false);
    rig.system->last()->onLost(QStringLiteral("it was unplugged or removed"));
    rig.system->watcher();
    rig.settle();
    rig.settle();
    EXPECT_EQ(rig.mic->errorMessage(),
        QStringLiteral("The microphone \"Built-in Audio\" stopped: it was unplugged or removed"));
    EXPECT_FALSE(rig.mic->isRunning());
    EXPECT_TRUE(rig.system->last()->closed);
    EXPECT_EQ(rig.system->openedIDs().size(), 1u);

    // Plugged in again: it records again by itself and the message goes.
    builtin(true);
    rig.system->watcher();
    EXPECT_TRUE(spinUntil([&] { return rig.mic->isRunning() && !rig.mic->errorMessage(); }));
    EXPECT_EQ(rig.system->openedIDs(), std::vector<QString>({ QStringLiteral("builtin"), QStringLiteral("builtin") }));
    EXPECT_FALSE(rig.system->last()->closed);

    // Nothing left to record from.
    {
        std::lock_guard lock(rig.system->mutex);
        rig.system->devices.clear();
        rig.system->defaultID.reset();
    }
    rig.mic->start(QStringLiteral("usb"));
    rig.settle();
    EXPECT_EQ(rig.mic->errorMessage(), QStringLiteral("No microphone found."));
    EXPECT_FALSE(rig.mic->isRunning());

    // A microphone plugged in shows up in the list by itself.
    {
        std::lock_guard lock(rig.system->mutex);
        rig.system->devices = { { QStringLiteral("usb"), QStringLiteral("USB Headset") } };
    }
    rig.system->watcher();
    EXPECT_TRUE(spinUntil([&] { return rig.mic->availableDevices().size() == 1; }));
}

#include "app/session/AudioRouting.h"

#include "app/AppSettings.h"
#include "core/Publisher.h"
#include "devices/MicCapture.h"
#include "platform/SoundServerWatcher.h"
#include "recorder/SegmentedRecorder.h"

#include <QPointer>

AudioRouting::AudioRouting(AppSettings& s, SegmentedRecorder& r, MicCapture& m,
    std::unique_ptr<SoundServerWatcher> watcher, std::function<void(const QString&)> showToast,
    std::function<void()> restart, QObject* parent)
    : QObject(parent)
    , settings(s)
    , recorder(r)
    , microphone(m)
    , soundServer(std::move(watcher))
    , toast(std::move(showToast))
    , restartStream(std::move(restart))
{
    // Segments get an audio track when either audio source is on.
    recorder.setAudioEnabled(settings.microphoneEnabled() || settings.systemAudioEnabled());

    // The microphone's list, and the microphone itself if it was left on.
    microphone.refreshDevices();
    if (settings.microphoneEnabled()) microphone.start(settings.microphoneDeviceID());

    // The microphone switch changes whether segments carry audio, and opens or closes the device.
    // This also runs once at launch: a microphone left on is started twice (the second start
    // finds it open), one left off is stopped.
    observe(&settings, &AppSettings::microphoneEnabled, &AppSettings::microphoneEnabledChanged)
        .removeDuplicates()
        .sink(this, [this](bool on) {
            recorder.setAudioEnabled(on || settings.systemAudioEnabled());
            if (on)
                microphone.start(settings.microphoneDeviceID());
            else
                microphone.stop();
        });

    // Another microphone chosen while it is on: the new one replaces it.
    observe(&settings, &AppSettings::microphoneDeviceID, &AppSettings::microphoneDeviceIDChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& id) {
            if (settings.microphoneEnabled()) microphone.start(id);
        });

    // A microphone that stops (switched off, unplugged) no longer holds the mix back.
    connect(&microphone, &MicCapture::isRunningChanged, this, [this] {
        if (!microphone.isRunning()) recorder.endAudioInput(AudioMixer::Input::microphone);
    });

    // System audio is part of the stream's set-up, so switching it needs a new stream.
    observe(&settings, &AppSettings::systemAudioEnabled, &AppSettings::systemAudioEnabledChanged)
        .dropFirst()
        .removeDuplicates()
        .sink(this, [this](bool on) {
            recorder.setAudioEnabled(on || settings.microphoneEnabled());
            restartStream();
        });

    followSoundServer();
}

AudioRouting::~AudioRouting()
{
    // Its reports reach this object from another thread: it stops first.
    soundServer.reset();
}

void AudioRouting::followSoundServer()
{
    // The sound server going away silences both sources until it is back (they reconnect by
    // themselves): the user hears of it when any sound is wanted.
    if (!soundServer) return;
    QPointer<AudioRouting> self(this);
    soundServer->watch([self](bool lost, const QString&) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, lost] {
                if (!self) return;
                if (self->settings.microphoneEnabled() || self->settings.systemAudioEnabled())
                    self->toast(lost ? soundLostText : soundBackText);
            },
            Qt::QueuedConnection);
    });
}

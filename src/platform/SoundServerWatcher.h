#pragma once

#include <QString>

#include <functional>

// Tells when the sound server goes away and when it is back, so that the user hears of clips
// without sound. The audio sources find their way back by themselves; this only reports.
// Implementation: PulseServerWatch (src/platform/pulse), chosen in PlatformFactory.
class SoundServerWatcher {
public:
    // `lost` true when the server went away (`reason` says how), false when it answers again.
    // Called on the watcher's own thread; after the watcher is destroyed, never again.
    using Report = std::function<void(bool lost, const QString& reason)>;

    virtual ~SoundServerWatcher() = default;

    // Starts watching; called once.
    virtual void watch(Report report) = 0;
};

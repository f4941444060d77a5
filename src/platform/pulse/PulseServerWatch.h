#pragma once

#include "platform/SoundServerWatcher.h"

#include <memory>

class PulseConnection;

// The PulseAudio server's coming and going, seen through a connection of its own that is made
// again whenever it fails (PulseConnection).
class PulseServerWatch : public SoundServerWatcher {
public:
    PulseServerWatch();
    ~PulseServerWatch() override;

    void watch(Report report) override;

private:
    Report report;
    bool lost = false; // the PulseAudio thread only
    std::unique_ptr<PulseConnection> connection;
};

#pragma once

#include "app/RecorderViewModel.h"

// Chooses the platform backends once at start-up: X11 capture when an X display answers (the null
// backend, which reports "not available", otherwise), PulseAudio for system audio, and the
// freedesktop sound and file manager.
namespace PlatformFactory {

RecorderViewModel::Platform create();

} // namespace PlatformFactory

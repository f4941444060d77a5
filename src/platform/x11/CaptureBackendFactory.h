#pragma once

#include "capture/CaptureBackend.h"

#include <memory>

// Chooses the screen backend for this session, once at start-up: X11 when DISPLAY names an X
// server that has what capture needs and the session is not Wayland (whose X server only shows X
// clients), otherwise a NullCaptureBackend that says why.
namespace CaptureBackendFactory {

std::shared_ptr<CaptureBackend> make();

} // namespace CaptureBackendFactory

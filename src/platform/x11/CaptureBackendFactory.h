#pragma once

#include "capture/CaptureBackend.h"

#include <memory>

// Chooses the screen backend for this session, once at start-up: X11 when DISPLAY names an X
// server that has what capture needs and the session is not Wayland (whose X server only shows X
// clients), otherwise a NullCaptureBackend that says why.
namespace CaptureBackendFactory {

std::shared_ptr<CaptureBackend> make();
// Whether make() would choose X11: an X session whose server answers.
bool isX11Session();

} // namespace CaptureBackendFactory

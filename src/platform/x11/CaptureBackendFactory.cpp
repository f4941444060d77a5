#include "platform/x11/CaptureBackendFactory.h"

#include "capture/NullCaptureBackend.h"
#include "core/Log.h"
#include "platform/x11/X11CaptureBackend.h"

namespace CaptureBackendFactory {

std::shared_ptr<CaptureBackend> make()
{
    if (qgetenv("XDG_SESSION_TYPE") == "wayland")
        return std::make_shared<NullCaptureBackend>(
            QStringLiteral("screen capture is not available in a Wayland session yet"));
    if (const QString reason = X11CaptureBackend::probe(); !reason.isEmpty()) {
        logLine(QStringLiteral("X11 capture unavailable: ") + reason);
        return std::make_shared<NullCaptureBackend>(reason);
    }
    return std::make_shared<X11CaptureBackend>();
}

bool isX11Session()
{
    return qgetenv("XDG_SESSION_TYPE") != "wayland" && X11CaptureBackend::probe().isEmpty();
}

} // namespace CaptureBackendFactory

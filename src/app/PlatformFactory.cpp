#include "app/PlatformFactory.h"

#include "platform/desktop/DesktopIntegration.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/CaptureBackendFactory.h"

namespace PlatformFactory {

RecorderViewModel::Platform create()
{
    RecorderViewModel::Platform platform;
    platform.screen = CaptureBackendFactory::make();
    platform.systemAudio = std::make_shared<PulseSystemAudio>();
    platform.desktop = DesktopIntegration::create();
    return platform;
}

} // namespace PlatformFactory

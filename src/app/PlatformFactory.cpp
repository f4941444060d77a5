#include "app/PlatformFactory.h"

#include "platform/desktop/DesktopIntegration.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "platform/pulse/PulseMicrophones.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/CaptureBackendFactory.h"
#include "platform/x11/X11WindowVisibility.h"

#include <QGuiApplication>

namespace PlatformFactory {

RecorderViewModel::Platform create()
{
    RecorderViewModel::Platform platform;
    platform.screen = CaptureBackendFactory::make();
    platform.systemAudio = std::make_shared<PulseSystemAudio>();
    platform.microphones = std::make_shared<PulseMicrophones>();
    platform.desktop = DesktopIntegration::create();
    platform.textRecognizer = textRecognizers();
    return platform;
}

RecognizerFactory textRecognizers()
{
    return TesseractRecognizer::factory();
}

std::unique_ptr<WindowVisibilityWatcher> watchWindowVisibility(uintptr_t window, WindowVisibilityWatcher::Report report)
{
    if (QGuiApplication::platformName() != QLatin1String("xcb")) return nullptr;
    return X11WindowVisibility::watch(uint32_t(window), std::move(report));
}

} // namespace PlatformFactory

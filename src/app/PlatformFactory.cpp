#include "app/PlatformFactory.h"

#include "app/AppIdentity.h"
#include "platform/desktop/DesktopIntegration.h"
#include "platform/desktop/FreedesktopNotifications.h"
#include "platform/desktop/QtSystemTray.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "platform/pulse/PulseMicrophones.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/x11/AreaPickerOverlay.h"
#include "platform/x11/ArmedAreaOverlay.h"
#include "platform/x11/CaptureBackendFactory.h"
#include "platform/x11/X11KeyGrabCheck.h"
#include "platform/x11/X11WindowVisibility.h"

#include <QGuiApplication>

namespace PlatformFactory {

bool showsX11Windows()
{
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance())
        && QGuiApplication::platformName() == QLatin1String("xcb");
}

RecorderViewModel::Platform create()
{
    RecorderViewModel::Platform platform;
    platform.screen = CaptureBackendFactory::make();
    platform.systemAudio = std::make_shared<PulseSystemAudio>();
    platform.microphones = std::make_shared<PulseMicrophones>();
    platform.desktop = DesktopIntegration::create();
    platform.textRecognizer = textRecognizers();
    // The picker and the frame are windows: they need the X display as the application's own.
    if (showsX11Windows()) {
        platform.areaPicker = std::make_unique<AreaPickerOverlay>(platform.screen);
        platform.armedFrame = std::make_unique<ArmedAreaOverlay>(platform.screen);
    }
    return platform;
}

RecognizerFactory textRecognizers()
{
    return TesseractRecognizer::factory();
}

bool isX11Session()
{
    return CaptureBackendFactory::isX11Session();
}

std::unique_ptr<DesktopNotifications> notifications()
{
    return std::make_unique<FreedesktopNotifications>(QDBusConnection::sessionBus(), AppIdentity::appId());
}

std::unique_ptr<SystemTray> systemTray()
{
    return std::make_unique<QtSystemTray>();
}

std::unique_ptr<WindowVisibilityWatcher> watchWindowVisibility(uintptr_t window, WindowVisibilityWatcher::Report report)
{
    if (QGuiApplication::platformName() != QLatin1String("xcb")) return nullptr;
    return X11WindowVisibility::watch(uint32_t(window), std::move(report));
}

std::shared_ptr<KeyGrabCheck> keyGrabCheck()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb")) return nullptr;
    return std::make_shared<X11KeyGrabCheck>();
}

} // namespace PlatformFactory

#include "platform/Platform.h"

#include "core/Log.h"
#include "platform/NullCaptureBackend.h"
#include "platform/camera/AvDeviceCameras.h"
#include "platform/desktop/FreedesktopNotifications.h"
#include "platform/desktop/QtSystemTray.h"
#include "platform/ocr/TesseractRecognizer.h"
#include "platform/pulse/PulseMicrophones.h"
#include "platform/pulse/PulseServerWatch.h"
#include "platform/pulse/PulseSystemAudio.h"
#include "platform/wayland/FrozenPicturePicker.h"
#include "platform/wayland/LayerShellAreaPicker.h"
#include "platform/wayland/LayerShellArmedFrame.h"
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "platform/wayland/WaylandCaptureBackend.h"
#include "platform/x11/AreaPickerOverlay.h"
#include "platform/x11/ArmedAreaOverlay.h"
#include "platform/x11/X11CaptureBackend.h"
#include "platform/x11/X11HotkeyMonitor.h"
#include "platform/x11/X11KeyGrabCheck.h"
#include "platform/x11/X11WindowVisibility.h"

#include <QGuiApplication>
#include <QSettings>

#include <functional>

namespace {

// The portal's restore token and the source it restored, kept with the other settings: the desktop
// asks the user once.
const QString restoreTokenKey = QStringLiteral("vt2.wayland.restoreToken");
const QString restoredSourceKey = QStringLiteral("vt2.wayland.restoredSource");

WaylandCaptureBackend::TokenStore settingsTokenStore()
{
    return {
        [] {
            const QSettings settings(QStringLiteral("Velotape"), QStringLiteral("Velotape"));
            return WaylandCaptureBackend::Kept { settings.value(restoreTokenKey).toString(),
                settings.value(restoredSourceKey).toString() };
        },
        [](const WaylandCaptureBackend::Kept& kept) {
            QSettings settings(QStringLiteral("Velotape"), QStringLiteral("Velotape"));
            if (kept.token.isEmpty()) {
                settings.remove(restoreTokenKey);
                settings.remove(restoredSourceKey);
            } else {
                settings.setValue(restoreTokenKey, kept.token);
                settings.setValue(restoredSourceKey, kept.source);
            }
        },
    };
}

// Whether the application's windows reach a screen (not Qt's offscreen or minimal platforms, on
// which a headless run only paints).
bool showsWindows()
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return false;
    const QString name = QGuiApplication::platformName();
    return name != QLatin1String("offscreen") && name != QLatin1String("minimal");
}

// The Wayland picker, chosen for each pick by what the desktop shares: over a screen, the layer
// surface over the live desktop; over a window, whose pictures lie nowhere on the screen in
// particular, the full-screen window with the window's still, where the program shows windows.
class WaylandAreaPicker final : public AreaPicker {
public:
    WaylandAreaPicker(std::unique_ptr<LayerShellAreaPicker> overScreen, std::unique_ptr<FrozenPicturePicker> overStill,
        std::function<bool()> sharesWindow)
        : overScreen(std::move(overScreen))
        , overStill(std::move(overStill))
        , sharesWindow(std::move(sharesWindow))
    {
    }

    void pick(Completion completion) override
    {
        overScreen->dismiss();
        if (overStill) overStill->dismiss();
        if (!sharesWindow()) return overScreen->pick(std::move(completion));
        if (overStill) return overStill->pick(std::move(completion));
        logLine(QStringLiteral("Area picker: the desktop shares a window, and without the program's window there is "
                               "nothing to pick on"));
        if (completion) completion(std::nullopt);
    }

private:
    std::unique_ptr<LayerShellAreaPicker> overScreen;
    std::unique_ptr<FrozenPicturePicker> overStill;
    std::function<bool()> sharesWindow;
};

bool applicationIsOnXcb()
{
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance())
        && QGuiApplication::platformName() == QLatin1String("xcb");
}

} // namespace

std::optional<Platform::Backend> Platform::backendNamed(const QString& name)
{
    if (name == QLatin1String("x11")) return Backend::x11;
    if (name == QLatin1String("wayland")) return Backend::wayland;
    return std::nullopt;
}

QString Platform::nameOf(Backend backend)
{
    return backend == Backend::wayland ? QStringLiteral("wayland") : QStringLiteral("x11");
}

Platform::Backend Platform::chooseBackend(std::optional<Backend> requested, const QByteArray& sessionType)
{
    if (requested) return *requested;
    return sessionType.trimmed().toLower() == "wayland" ? Backend::wayland : Backend::x11;
}

Platform::Backend Platform::backendForThisSession(std::optional<Backend> requested)
{
    return chooseBackend(requested, qgetenv("XDG_SESSION_TYPE"));
}

Platform::Platform(Backend backend)
    : chosen(backend)
{
}

Platform::~Platform() = default;

QString Platform::unavailableReason()
{
    if (chosen == Backend::wayland) return WaylandCaptureBackend::probe();
    return X11CaptureBackend::probe();
}

std::shared_ptr<CaptureBackend> Platform::screen()
{
    if (screenBackend) return screenBackend;
    if (const QString reason = unavailableReason(); !reason.isEmpty()) {
        logLine(QStringLiteral("Screen capture unavailable: ") + reason);
        screenBackend = std::make_shared<NullCaptureBackend>(reason);
    } else if (chosen == Backend::wayland) {
        screenBackend = std::make_shared<WaylandCaptureBackend>(settingsTokenStore());
    } else {
        screenBackend = std::make_shared<X11CaptureBackend>();
    }
    return screenBackend;
}

std::shared_ptr<SystemAudioBackend> Platform::systemAudio()
{
    if (!systemAudioBackend) systemAudioBackend = std::make_shared<PulseSystemAudio>();
    return systemAudioBackend;
}

std::shared_ptr<MicrophoneBackend> Platform::microphones()
{
    if (!microphoneBackend) microphoneBackend = std::make_shared<PulseMicrophones>();
    return microphoneBackend;
}

std::shared_ptr<CameraBackend> Platform::cameras()
{
    if (!cameraBackend) cameraBackend = std::make_shared<AvDeviceCameras>(qgetenv("VELOTAPE_FAKE_CAMERA"));
    return cameraBackend;
}

std::unique_ptr<SoundServerWatcher> Platform::soundServerWatcher()
{
    return std::make_unique<PulseServerWatch>();
}

std::unique_ptr<DesktopIntegration> Platform::desktop()
{
    return DesktopIntegration::create();
}

std::unique_ptr<DesktopNotifications> Platform::notifications(const QString& appId)
{
    return std::make_unique<FreedesktopNotifications>(QDBusConnection::sessionBus(), appId);
}

std::unique_ptr<SystemTray> Platform::systemTray()
{
    return std::make_unique<QtSystemTray>();
}

RecognizerFactory Platform::textRecognizers() const
{
    return TesseractRecognizer::factory();
}

bool Platform::showsOverlayWindows() const
{
    return chosen == Backend::x11 && applicationIsOnXcb();
}

bool Platform::hasOverlayDisplay()
{
    if (chosen == Backend::wayland) return LayerShellArmedFrame::available();
    return X11CaptureBackend::probe().isEmpty();
}

std::unique_ptr<AreaPicker> Platform::areaPicker()
{
    if (chosen == Backend::wayland) {
        const auto wayland = std::dynamic_pointer_cast<WaylandCaptureBackend>(screen());
        if (!wayland) return nullptr;
        const std::weak_ptr<WaylandCaptureBackend> weak = wayland;
        std::unique_ptr<FrozenPicturePicker> overStill;
        if (showsWindows()) {
            overStill = std::make_unique<FrozenPicturePicker>([weak]() -> std::optional<FrozenPicturePicker::Still> {
                const auto backend = weak.lock();
                const auto still = backend ? backend->newestPicture() : std::nullopt;
                if (!still) return std::nullopt;
                return FrozenPicturePicker::Still { still->origin, still->picture };
            });
        }
        // Qt draws the layer surface's picture, and its fonts need a GUI application.
        std::unique_ptr<LayerShellAreaPicker> overScreen;
        if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
            overScreen = LayerShellAreaPicker::connect([weak]() -> std::optional<QRect> {
                const auto backend = weak.lock();
                const auto still = backend ? backend->newestPicture() : std::nullopt;
                if (!still) return std::nullopt;
                return QRect(still->origin, still->picture.size());
            });
        }
        if (!overScreen) return overStill;
        return std::make_unique<WaylandAreaPicker>(std::move(overScreen), std::move(overStill), [weak] {
            const auto backend = weak.lock();
            return backend && backend->sharesWindow();
        });
    }
    if (!showsOverlayWindows()) return nullptr;
    return std::make_unique<AreaPickerOverlay>(screen());
}

std::unique_ptr<ArmedFrame> Platform::armedFrame()
{
    // A surface of our own on the compositor's overlay layer, where it has the layer shell: Qt need
    // not even run on Wayland.
    if (chosen == Backend::wayland) {
        const std::weak_ptr<CaptureBackend> shared = screen();
        return LayerShellArmedFrame::connect([shared] {
            const auto wayland = std::dynamic_pointer_cast<WaylandCaptureBackend>(shared.lock());
            return !wayland || !wayland->sharesWindow();
        });
    }
    if (!showsOverlayWindows()) return nullptr;
    return std::make_unique<ArmedAreaOverlay>(screen());
}

std::unique_ptr<GlobalKeyMonitor> Platform::globalKeyMonitor()
{
    if (chosen != Backend::x11) return nullptr;
    return X11HotkeyMonitor::create();
}

std::unique_ptr<DesktopShortcuts> Platform::desktopShortcuts()
{
    // On X11 the global key monitor hears the keys itself.
    if (chosen != Backend::wayland || !PortalGlobalShortcuts::available()) return nullptr;
    return std::make_unique<PortalGlobalShortcuts>();
}

DesktopWords Platform::desktopWords()
{
    if (chosen != Backend::wayland) return DesktopWords::x11();
    return DesktopWords::wayland(PortalGlobalShortcuts::available(), LayerShellArmedFrame::available());
}

std::shared_ptr<KeyGrabCheck> Platform::keyGrabCheck()
{
    if (!showsOverlayWindows()) return nullptr;
    return std::make_shared<X11KeyGrabCheck>();
}

std::unique_ptr<WindowVisibilityWatcher> Platform::watchWindowVisibility(
    uintptr_t window, WindowVisibilityWatcher::Report report)
{
    if (!showsOverlayWindows()) return nullptr;
    return X11WindowVisibility::watch(uint32_t(window), std::move(report));
}

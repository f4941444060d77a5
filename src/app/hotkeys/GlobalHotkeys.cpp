#include "app/hotkeys/GlobalHotkeys.h"

#include "app/AppSettings.h"
#include "app/hotkeys/HotkeyMatcher.h"
#include "core/Publisher.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPointer>

namespace {

// The local monitor of one hotkey: an application-wide event filter that takes a matching key.
class LocalHotkeyFilter : public QObject {
public:
    LocalHotkeyFilter(HotkeyBinding binding, std::function<void()> action)
        : binding(std::move(binding))
        , action(std::move(action))
    {
        QCoreApplication::instance()->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const QEvent::Type type = event->type();
        if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride) return QObject::eventFilter(watched, event);
        const auto* key = static_cast<QKeyEvent*>(event);
        if (!HotkeyMatcher::matches(binding, static_cast<uint16_t>(key->nativeScanCode()),
                HotkeyMatcher::modifierRawFromQt(key->modifiers())))
            return QObject::eventFilter(watched, event);
        if (type == QEvent::ShortcutOverride) {
            // Claimed before any menu shortcut can take it; the KeyPress that follows fires.
            event->accept();
            return true;
        }
        action();
        return true;
    }

private:
    HotkeyBinding binding;
    std::function<void()> action;
};

} // namespace

void GlobalHotkeys::DeleteLater::operator()(QObject* filter) const
{
    if (QCoreApplication* app = QCoreApplication::instance()) app->removeEventFilter(filter);
    filter->deleteLater();
}

GlobalHotkeys::GlobalHotkeys(MonitorFactory makeGlobalMonitor, QObject* parent)
    : QObject(parent)
    , applicationHasKeyboardFocus([] { return QGuiApplication::focusWindow() != nullptr; })
    , makeGlobalMonitor(std::move(makeGlobalMonitor))
{
}

GlobalHotkeys::~GlobalHotkeys() = default;

void GlobalHotkeys::registerHotkey(const HotkeyBinding& binding)
{
    registerMonitors(Hotkey::save, binding);
}

void GlobalHotkeys::registerArmHotkey(const HotkeyBinding& binding)
{
    registerMonitors(Hotkey::arm, binding);
}

void GlobalHotkeys::unregisterHotkey()
{
    saveMonitors = {};
}

void GlobalHotkeys::unregisterArmHotkey()
{
    armMonitors = {};
}

void GlobalHotkeys::followSettings(AppSettings* settings)
{
    registerHotkey(settings->saveHotkey());
    registerArmHotkey(settings->armHotkey());
    observe(settings, &AppSettings::saveHotkey, &AppSettings::saveHotkeyChanged)
        .dropFirst()
        .sink(this, [this](const HotkeyBinding& binding) { registerHotkey(binding); });
    observe(settings, &AppSettings::armHotkey, &AppSettings::armHotkeyChanged)
        .dropFirst()
        .sink(this, [this](const HotkeyBinding& binding) { registerArmHotkey(binding); });
}

void GlobalHotkeys::registerMonitors(Hotkey hotkey, const HotkeyBinding& binding)
{
    Monitors& monitors = monitorsOf(hotkey);
    monitors = {};
    if (!HotkeyMatcher::registers(binding)) return;

    QPointer<GlobalHotkeys> weak(this);
    monitors.local.reset(new LocalHotkeyFilter(binding, [weak, hotkey] {
        if (weak) weak->fire(hotkey);
    }));

    // A monitor that can't be made leaves the hotkey working inside the application only.
    if (!makeGlobalMonitor) return;
    monitors.global = makeGlobalMonitor();
    if (!monitors.global) return;
    monitors.global->setHandler([weak, hotkey, binding](uint16_t keyCode, uint64_t modifierRaw) {
        if (!weak || !HotkeyMatcher::matches(binding, keyCode, modifierRaw)) return;
        if (weak->applicationHasKeyboardFocus && weak->applicationHasKeyboardFocus()) return;
        QMetaObject::invokeMethod(
            weak.data(),
            [weak, hotkey] {
                if (weak) weak->fire(hotkey);
            },
            Qt::QueuedConnection);
    });
}

GlobalHotkeys::Monitors& GlobalHotkeys::monitorsOf(Hotkey hotkey)
{
    return hotkey == Hotkey::save ? saveMonitors : armMonitors;
}

void GlobalHotkeys::fire(Hotkey hotkey)
{
    const std::function<void()>& action = hotkey == Hotkey::save ? onSaveHotkey : onArmHotkey;
    if (action) action();
}

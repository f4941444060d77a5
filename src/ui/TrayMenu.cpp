#include "ui/TrayMenu.h"

#include "app/AppSettings.h"
#include "app/hotkeys/HotkeyRecorder.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "monitor/AreaMonitor.h"
#include "recorder/SegmentedRecorder.h"

#include <QMenu>

namespace {

// The item's title, with the hotkey after a tab where one is set; the hotkey monitors hear the
// key, the menu only shows it.
QString withHotkey(const QString& title, const HotkeyBinding& binding)
{
    if (!binding.enabled || binding.keyChar.isEmpty()) return title;
    return title + u'\t' + HotkeyRecorder::bindingText(binding);
}

QString toolTipOf(SystemTray::State state)
{
    switch (state) {
    case SystemTray::State::recording:
        return QStringLiteral("Velotape: recording");
    case SystemTray::State::armed:
        return QStringLiteral("Velotape: area monitor armed");
    case SystemTray::State::buffering:
        return QStringLiteral("Velotape: buffering");
    case SystemTray::State::idle:
        break;
    }
    return QStringLiteral("Velotape: no source");
}

} // namespace

TrayMenu::TrayMenu(const SessionModels& m, std::unique_ptr<SystemTray> platformTray, QObject* parent)
    : QObject(parent)
    , models(m)
    , tray(std::move(platformTray))
    , trayMenu(std::make_unique<QMenu>())
{
    save = trayMenu->addAction(QString(), this, [this] { models.actions->toggleRecording(); });
    arm = trayMenu->addAction(QString(), this, [this] { models.actions->toggleAreaMonitor(); });
    trayMenu->addSeparator();
    showWindow = trayMenu->addAction(QStringLiteral("Show Velotape"), this, [this] {
        if (onShowWindow) onShowWindow();
    });
    quit = trayMenu->addAction(QStringLiteral("Quit Velotape"), this, [this] {
        if (onQuit) onQuit();
    });
    if (tray)
        tray->onActivated = [this] {
            if (onShowWindow) onShowWindow();
        };

    SegmentedRecorder* recorder = models.recorder;
    connect(recorder, &SegmentedRecorder::isRecordingChanged, this, &TrayMenu::update);
    connect(recorder, &SegmentedRecorder::isBufferingChanged, this, &TrayMenu::update);
    connect(models.monitor, &AreaMonitor::isArmedChanged, this, &TrayMenu::update);
    connect(models.settings, &AppSettings::saveHotkeyChanged, this, &TrayMenu::update);
    connect(models.settings, &AppSettings::armHotkeyChanged, this, &TrayMenu::update);
    update();
}

TrayMenu::~TrayMenu()
{
    // The icon goes before the menu it shows.
    tray.reset();
}

bool TrayMenu::show()
{
    if (!tray || !tray->isAvailable()) return false;
    tray->show(trayMenu.get());
    update();
    return tray->isShown();
}

bool TrayMenu::isShown() const
{
    return tray && tray->isShown();
}

SystemTray::State TrayMenu::stateOf(bool recording, bool buffering, bool armed)
{
    if (recording) return SystemTray::State::recording;
    if (armed) return SystemTray::State::armed;
    if (buffering) return SystemTray::State::buffering;
    return SystemTray::State::idle;
}

void TrayMenu::update()
{
    const SegmentedRecorder* recorder = models.recorder;
    const bool recording = recorder->isRecording();
    const bool armed = models.monitor->isArmed();
    current = stateOf(recording, recorder->isBuffering(), armed);
    const AppSettings* settings = models.settings;
    save->setText(withHotkey(
        recording ? QStringLiteral("Save clip") : QStringLiteral("Start recording"), settings->saveHotkey()));
    arm->setText(withHotkey(
        armed ? QStringLiteral("Disarm area monitor") : QStringLiteral("Arm area monitor"), settings->armHotkey()));
    if (tray) tray->setState(current, toolTipOf(current));
}

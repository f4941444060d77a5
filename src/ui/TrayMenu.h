#pragma once

#include "app/session/SessionModels.h"
#include "platform/SystemTray.h"

#include <QObject>

#include <functional>
#include <memory>

class QAction;
class QMenu;

// The program in the desktop's tray: an icon that shows whether the ring is buffering, a clip is
// recording or the area monitor is armed, and a menu to save a clip, arm or disarm the monitor,
// show the window and quit. Present only where the desktop has a tray.
//
// Main thread.
class TrayMenu : public QObject {
    Q_OBJECT
public:
    TrayMenu(const SessionModels& m, std::unique_ptr<SystemTray> tray, QObject* parent = nullptr);
    ~TrayMenu() override;

    // Puts the icon in the tray when the desktop has one; whether it did.
    bool show();
    bool isShown() const;

    // Recording wins over an armed monitor, which wins over the ring alone.
    static SystemTray::State stateOf(bool recording, bool buffering, bool armed);
    SystemTray::State state() const { return current; }

    // "Start recording" or "Save clip", with the save hotkey beside it.
    QAction* saveItem() const { return save; }
    QAction* armItem() const { return arm; }
    QAction* showItem() const { return showWindow; }
    QAction* quitItem() const { return quit; }
    QMenu* menu() const { return trayMenu.get(); }

    std::function<void()> onShowWindow;
    std::function<void()> onQuit;

private:
    void update();

    SessionModels models;
    std::unique_ptr<SystemTray> tray;
    std::unique_ptr<QMenu> trayMenu;
    QAction* save = nullptr;
    QAction* arm = nullptr;
    QAction* showWindow = nullptr;
    QAction* quit = nullptr;
    SystemTray::State current = SystemTray::State::idle;
};

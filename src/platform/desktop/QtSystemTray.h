#pragma once

#include "platform/SystemTray.h"

#include <QIcon>

#include <memory>

class QSystemTrayIcon;

// The tray icon through QSystemTrayIcon, which speaks StatusNotifierItem where a host watches for
// items on the session bus and uses the X11 system tray otherwise.
//
// Main thread; needs a QApplication.
class QtSystemTray : public SystemTray {
public:
    QtSystemTray();
    ~QtSystemTray() override;

    bool isAvailable() const override;
    void show(QMenu* menu) override;
    bool isShown() const override;
    void setState(State state, const QString& toolTip) override;

    // The program's mark as the tray draws it for `state`, at the usual tray sizes.
    static QIcon iconFor(State state);

private:
    std::unique_ptr<QSystemTrayIcon> tray;
    State current = State::idle;
};

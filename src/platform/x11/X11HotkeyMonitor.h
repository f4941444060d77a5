#pragma once

#include "platform/GlobalKeyMonitor.h"

#include <QString>

#include <memory>

// The global key monitor of an X server: XInput2 raw key events selected on the root window. Raw
// events are a copy of the input stream; they observe without grabbing, so every key still goes
// to the window that has the focus.
//
// Its own connection to the server, read on the main thread through a socket notifier. Main thread
// only; the handler runs on it.
class X11HotkeyMonitor final : public GlobalKeyMonitor {
public:
    // Connects to `display` (the DISPLAY of the environment when empty). None when there is no X
    // server, or it doesn't offer XInput 2.
    static std::unique_ptr<X11HotkeyMonitor> create(const QString& display = {});
    ~X11HotkeyMonitor() override;

    void setHandler(Handler handler) override;

private:
    struct Connection;
    explicit X11HotkeyMonitor(std::unique_ptr<Connection> connection);

    std::unique_ptr<Connection> connection;
};

#pragma once

#include "platform/KeyGrabCheck.h"

#include <QString>

// Asks the X server whether another client holds a passive grab of a key: a grab of our own on the
// root window is refused with BadAccess exactly then. Each question opens its own connection, grabs
// the key with every combination of Caps Lock and Num Lock (other programs grab those too), and
// releases whatever it got at once, so nothing of ours holds the key afterwards.
class X11KeyGrabCheck final : public KeyGrabCheck {
public:
    // The DISPLAY of the environment when `display` is empty.
    explicit X11KeyGrabCheck(QString display = {});

    bool isTakenByAnotherProgram(uint16_t keyCode, uint64_t modifierRaw) override;

private:
    QString display;
};

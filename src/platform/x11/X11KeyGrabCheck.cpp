#include "platform/x11/X11KeyGrabCheck.h"

#include "core/HotkeyBinding.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

struct ConnectionDeleter {
    void operator()(xcb_connection_t* c) const { xcb_disconnect(c); }
};

// The X modifier masks of the stored bits: "Command" is Ctrl, "Option" Alt (Mod1) and "Control"
// the Super key (Mod4), as on every common keymap.
uint16_t xModifiers(uint64_t modifierRaw)
{
    uint16_t mask = 0;
    if (modifierRaw & HotkeyBinding::shiftBit) mask |= XCB_MOD_MASK_SHIFT;
    if (modifierRaw & HotkeyBinding::commandBit) mask |= XCB_MOD_MASK_CONTROL;
    if (modifierRaw & HotkeyBinding::optionBit) mask |= XCB_MOD_MASK_1;
    if (modifierRaw & HotkeyBinding::controlBit) mask |= XCB_MOD_MASK_4;
    return mask;
}

} // namespace

X11KeyGrabCheck::X11KeyGrabCheck(QString displayName)
    : display(std::move(displayName))
{
}

bool X11KeyGrabCheck::isTakenByAnotherProgram(uint16_t keyCode, uint64_t modifierRaw)
{
    if (keyCode < 8 || keyCode > 255) return false;
    int screenNumber = 0;
    const QByteArray name = display.toLocal8Bit();
    std::unique_ptr<xcb_connection_t, ConnectionDeleter> xcb(
        xcb_connect(name.isEmpty() ? nullptr : name.constData(), &screenNumber));
    if (!xcb || xcb_connection_has_error(xcb.get())) return false;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(xcb.get()));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem) return false;
    const xcb_window_t root = screens.data->root;

    const uint16_t base = xModifiers(modifierRaw);
    // Num Lock is Mod2 on every common keymap.
    const uint16_t locks[] = { 0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2 };
    std::vector<uint16_t> granted;
    bool taken = false;
    for (const uint16_t lock : locks) {
        const uint16_t modifiers = base | lock;
        const xcb_void_cookie_t cookie = xcb_grab_key_checked(xcb.get(), 1, root, modifiers,
            static_cast<xcb_keycode_t>(keyCode), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        if (xcb_generic_error_t* error = xcb_request_check(xcb.get(), cookie)) {
            taken = taken || error->error_code == XCB_ACCESS;
            std::free(error);
        } else {
            granted.push_back(modifiers);
        }
    }
    for (const uint16_t modifiers : granted)
        xcb_ungrab_key(xcb.get(), static_cast<xcb_keycode_t>(keyCode), root, modifiers);
    xcb_flush(xcb.get());
    return taken;
}

#include "platform/x11/XInputSelection.h"

#include <xcb/xinput.h>

#include <cstdlib>

bool selectXInputEvents(xcb_connection_t* connection, xcb_window_t window, uint32_t mask)
{
    struct {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } selection {};
    selection.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    selection.head.mask_len = 1;
    selection.mask = mask;
    xcb_generic_error_t* error
        = xcb_request_check(connection, xcb_input_xi_select_events_checked(connection, window, 1, &selection.head));
    const bool taken = error == nullptr;
    std::free(error);
    return taken;
}

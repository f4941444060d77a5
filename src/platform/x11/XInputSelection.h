#pragma once

#include <xcb/xcb.h>

#include <cstdint>

// Asks for XInput 2 events of every master device on `window` (raw events go to the root window
// of clients that select them, whoever has the focus). `mask` is a set of
// XCB_INPUT_XI_EVENT_MASK_* bits. The client must have announced XI 2 with XIQueryVersion first.
// True when the server took the selection.
bool selectXInputEvents(xcb_connection_t* connection, xcb_window_t window, uint32_t mask);

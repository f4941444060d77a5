#include "platform/x11/X11HotkeyMonitor.h"

#include "core/Log.h"
#include "platform/x11/XInputModifierState.h"
#include "platform/x11/XInputSelection.h"

#include <QSocketNotifier>

#include <xcb/xcb.h>
#include <xcb/xinput.h>

#include <algorithm>
#include <cstdlib>
#include <span>

namespace {

struct ConnectionDeleter {
    void operator()(xcb_connection_t* c) const { xcb_disconnect(c); }
};
using ConnectionPtr = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

// Replies and events are malloc'ed by xcb.
struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using XcbPtr = std::unique_ptr<T, FreeDeleter>;

} // namespace

struct X11HotkeyMonitor::Connection {
    ConnectionPtr xcb;
    xcb_window_t root = 0;
    uint8_t xinputOpcode = 0;
    XInputModifierState modifiers;
    std::unique_ptr<QSocketNotifier> notifier;
    Handler handler;

    bool loadKeyboardMapping()
    {
        const xcb_setup_t* setup = xcb_get_setup(xcb.get());
        const uint8_t first = setup->min_keycode;
        const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
        XcbPtr<xcb_get_keyboard_mapping_reply_t> reply(
            xcb_get_keyboard_mapping_reply(xcb.get(), xcb_get_keyboard_mapping(xcb.get(), first, count), nullptr));
        if (!reply) return false;
        const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(reply.get());
        const int length = xcb_get_keyboard_mapping_keysyms_length(reply.get());
        modifiers.setKeyboardMapping(first, reply->keysyms_per_keycode,
            std::span<const uint32_t>(keysyms, static_cast<size_t>(std::max(length, 0))));
        return true;
    }

    bool loadPressedKeys()
    {
        XcbPtr<xcb_query_keymap_reply_t> reply(xcb_query_keymap_reply(xcb.get(), xcb_query_keymap(xcb.get()), nullptr));
        if (!reply) return false;
        modifiers.setPressedKeys(std::span<const uint8_t, 32>(reply->keys, 32));
        return true;
    }

    // Everything the server sent, including events xcb queued while waiting for a reply, which
    // would not wake the notifier again.
    void drain()
    {
        while (XcbPtr<xcb_generic_event_t> event { xcb_poll_for_event(xcb.get()) })
            handle(event.get());
        if (xcb_connection_has_error(xcb.get()) && notifier && notifier->isEnabled()) {
            logLine(QStringLiteral("Global hotkeys: the connection to the X server was lost"));
            notifier->setEnabled(false);
        }
    }

    void handle(const xcb_generic_event_t* event)
    {
        const uint8_t type = event->response_type & 0x7f;
        if (type == XCB_MAPPING_NOTIFY) {
            const auto* mapping = reinterpret_cast<const xcb_mapping_notify_event_t*>(event);
            if (mapping->request == XCB_MAPPING_KEYBOARD || mapping->request == XCB_MAPPING_MODIFIER)
                loadKeyboardMapping();
            return;
        }
        if (type != XCB_GE_GENERIC) return;
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event);
        if (generic->extension != xinputOpcode) return;
        const auto* raw = reinterpret_cast<const xcb_input_raw_key_press_event_t*>(event);
        const auto keycode = static_cast<uint8_t>(raw->detail);
        if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS) {
            const bool modifierKey = modifiers.isModifierKey(keycode);
            modifiers.keyPressed(keycode);
            if (!modifierKey && handler) handler(keycode, modifiers.modifierRaw());
        } else if (generic->event_type == XCB_INPUT_RAW_KEY_RELEASE) {
            modifiers.keyReleased(keycode);
        }
    }
};

std::unique_ptr<X11HotkeyMonitor> X11HotkeyMonitor::create(const QString& display)
{
    int screenNumber = 0;
    const QByteArray name = display.toLocal8Bit();
    ConnectionPtr xcb(xcb_connect(name.isEmpty() ? nullptr : name.constData(), &screenNumber));
    if (!xcb || xcb_connection_has_error(xcb.get())) return nullptr;

    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(xcb.get()));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem) return nullptr;

    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(xcb.get(), &xcb_input_id);
    if (!extension || !extension->present) return nullptr;
    // Announcing XI 2 is what makes the server send XI 2 events to this client at all.
    XcbPtr<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(xcb.get(), xcb_input_xi_query_version(xcb.get(), 2, 2), nullptr));
    if (!version || version->major_version < 2) return nullptr;

    auto connection = std::make_unique<Connection>();
    connection->xcb = std::move(xcb);
    connection->root = screens.data->root;
    connection->xinputOpcode = extension->major_opcode;
    if (!connection->loadKeyboardMapping()) return nullptr;

    if (!selectXInputEvents(connection->xcb.get(), connection->root,
            XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE))
        return nullptr;
    // Modifiers already held when the monitor starts count too.
    if (!connection->loadPressedKeys()) return nullptr;

    Connection* raw = connection.get();
    connection->notifier
        = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection->xcb.get()), QSocketNotifier::Read);
    QObject::connect(
        connection->notifier.get(), &QSocketNotifier::activated, connection->notifier.get(), [raw] { raw->drain(); });
    return std::unique_ptr<X11HotkeyMonitor>(new X11HotkeyMonitor(std::move(connection)));
}

X11HotkeyMonitor::X11HotkeyMonitor(std::unique_ptr<Connection> connection)
    : connection(std::move(connection))
{
    // Events that arrived with the replies of the set-up are already in xcb's queue.
    this->connection->drain();
}

X11HotkeyMonitor::~X11HotkeyMonitor()
{
    // The notifier goes before the connection whose descriptor it watches.
    if (connection) connection->notifier.reset();
}

void X11HotkeyMonitor::setHandler(Handler handler)
{
    connection->handler = std::move(handler);
}

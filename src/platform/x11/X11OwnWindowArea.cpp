#include "platform/x11/X11OwnWindowArea.h"

#include "platform/x11/XcbConnection.h"

#include <algorithm>

X11OwnWindowArea::X11OwnWindowArea(xcb_connection_t* connection, xcb_window_t root)
    : connection(connection)
    , root(root)
{
}

xcb_window_t X11OwnWindowArea::topLevelOf(xcb_window_t window)
{
    xcb_window_t current = window;
    for (int depth = 0; depth < 8; ++depth) {
        XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection, xcb_query_tree(connection, current), nullptr));
        if (!tree) return XCB_NONE;
        if (tree->parent == root || tree->parent == XCB_NONE) return current;
        current = tree->parent;
    }
    return XCB_NONE;
}

std::vector<QRect> X11OwnWindowArea::uncoveredRects(const std::vector<uint32_t>& windows)
{
    std::vector<QRect> rects;
    if (windows.empty()) return rects;

    // Where each of ours is, and whether it shows; the root's children in stacking order.
    struct Asked {
        xcb_window_t window;
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_geometry_cookie_t geometry;
        xcb_translate_coordinates_cookie_t position;
    };
    std::vector<Asked> asked;
    for (uint32_t w : windows)
        asked.push_back({ w, xcb_get_window_attributes(connection, w), xcb_get_geometry(connection, w),
            xcb_translate_coordinates(connection, w, root, 0, 0) });
    const xcb_query_tree_cookie_t treeCookie = xcb_query_tree(connection, root);

    struct Shown {
        xcb_window_t window;
        QRect rect;
    };
    std::vector<Shown> shown;
    for (const Asked& a : asked) {
        XcbReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection, a.attributes, nullptr));
        XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(connection, a.geometry, nullptr));
        XcbReply<xcb_translate_coordinates_reply_t> position(
            xcb_translate_coordinates_reply(connection, a.position, nullptr));
        if (!attributes || !geometry || !position || attributes->map_state != XCB_MAP_STATE_VIEWABLE) continue;
        shown.push_back({ a.window, QRect(position->dst_x, position->dst_y, geometry->width, geometry->height) });
    }
    XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(connection, treeCookie, nullptr));
    if (!tree || shown.empty()) return rects;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    const xcb_window_t* end = children + count;

    std::vector<xcb_window_t> ownFrames;
    for (const Shown& own : shown) {
        auto frame = frames.find(own.window);
        if (frame == frames.end() || std::find(children, end, frame->second) == end)
            frame = frames.insert_or_assign(own.window, topLevelOf(own.window)).first;
        ownFrames.push_back(frame->second);
    }
    for (size_t i = 0; i < shown.size(); ++i) {
        const Shown& own = shown[i];
        const xcb_window_t* at = std::find(children, end, ownFrames[i]);
        if (at == end) continue;
        // The windows stacked above ours: another program's window over ours makes that part of
        // the screen its own.
        struct Above {
            xcb_window_t window;
            xcb_get_window_attributes_cookie_t attributes;
            xcb_get_geometry_cookie_t geometry;
        };
        std::vector<Above> above;
        for (const xcb_window_t* w = at + 1; w != end; ++w)
            above.push_back({ *w, xcb_get_window_attributes(connection, *w), xcb_get_geometry(connection, *w) });
        bool covered = false;
        for (const Above& a : above) {
            XcbReply<xcb_get_window_attributes_reply_t> attributes(
                xcb_get_window_attributes_reply(connection, a.attributes, nullptr));
            XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(connection, a.geometry, nullptr));
            if (covered || !attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE) continue;
            // Our own windows may lie over each other (a popover over the main window).
            const bool ours = std::find(ownFrames.begin(), ownFrames.end(), a.window) != ownFrames.end();
            const int border = geometry->border_width;
            const QRect rect(geometry->x, geometry->y, geometry->width + 2 * border, geometry->height + 2 * border);
            covered = !ours && rect.intersects(own.rect);
        }
        if (!covered) rects.push_back(own.rect);
    }
    return rects;
}

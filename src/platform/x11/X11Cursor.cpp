#include "platform/x11/X11Cursor.h"

#include "platform/x11/XcbConnection.h"

#include <xcb/xfixes.h>

#include <cstring>

bool X11Cursor::refreshImage(xcb_connection_t* connection)
{
    XcbReply<xcb_xfixes_get_cursor_image_reply_t> reply(
        xcb_xfixes_get_cursor_image_reply(connection, xcb_xfixes_get_cursor_image(connection), nullptr));
    if (!reply) return false;
    const int length = xcb_xfixes_get_cursor_image_cursor_image_length(reply.get());
    if (length < reply->width * reply->height) return false;
    QImage image(reply->width, reply->height, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull() && reply->width * reply->height > 0) return false;
    const uint32_t* source = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
    for (int y = 0; y < reply->height; ++y)
        std::memcpy(image.scanLine(y), source + y * reply->width, size_t(reply->width) * 4);
    picture = image;
    hotSpot = QPoint(reply->xhot, reply->yhot);
    cursorSerial = reply->cursor_serial;
    return true;
}

uint32_t X11Cursor::blend(uint32_t destination, uint32_t source)
{
    const uint32_t alpha = source >> 24;
    if (alpha == 0xff) return source;
    const uint32_t keep = 255 - alpha;
    uint32_t result = 0xff000000u;
    for (int shift = 0; shift < 24; shift += 8) {
        const uint32_t s = (source >> shift) & 0xff;
        const uint32_t d = (destination >> shift) & 0xff;
        const uint32_t mixed = s + (d * keep + 127) / 255;
        result |= (mixed > 255 ? 255 : mixed) << shift;
    }
    return result;
}

void X11Cursor::paint(uchar* pixels, int stride, QSize size, QPoint at) const
{
    const QRect visible = QRect(at, picture.size()) & QRect(QPoint(0, 0), size);
    for (int y = visible.top(); y <= visible.bottom(); ++y) {
        auto* row = reinterpret_cast<uint32_t*>(pixels + size_t(y) * stride);
        const auto* from = reinterpret_cast<const uint32_t*>(picture.constScanLine(y - at.y()));
        for (int x = visible.left(); x <= visible.right(); ++x) {
            const uint32_t s = from[x - at.x()];
            if ((s >> 24) != 0) row[x] = blend(row[x], s);
        }
    }
}

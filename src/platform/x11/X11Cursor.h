#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>

#include <xcb/xcb.h>

#include <cstdint>

// The pointer as XFixes shows it: its picture (premultiplied ARGB), its hot spot and where it is,
// for drawing it into grabbed frames. Used by one capture thread.
class X11Cursor {
public:
    // Blocking. Reads the cursor picture and position; false if the server can't say.
    bool refreshImage(xcb_connection_t* connection);

    // Where the picture lies when the pointer is at `pointer` (hot spot at the pointer).
    QRect placement(QPoint pointer) const { return QRect(pointer - hotSpot, picture.size()); }
    bool hasImage() const { return !picture.isNull(); }
    uint32_t serial() const { return cursorSerial; }

    // Draws the picture with its top left at `at` over 32-bit pixels of `size`, clipped to them.
    void paint(uchar* pixels, int stride, QSize size, QPoint at) const;

    // Pure: premultiplied source-over of one pixel, alpha of the result opaque.
    static uint32_t blend(uint32_t destination, uint32_t premultipliedSource);

private:
    QImage picture; // Format_ARGB32_Premultiplied
    QPoint hotSpot;
    uint32_t cursorSerial = 0;
};

#pragma once

#include <QByteArray>
#include <QImage>
#include <QRect>

#include <xcb/render.h>
#include <xcb/xcb.h>

#include <optional>

// The signature as the X server could make it: RENDER scales the area down to 16x16 with a box
// convolution (each output pixel the mean of the source pixels of its cell, in sRGB codes), and
// only the 256 pixels travel; this side turns each into linear-light luminance. The benchmark
// measures what that costs and how far it lands from the exact signature, which averages in
// linear light.
class ServerScaledSignature {
public:
    // On the display of DISPLAY; isReady() says whether RENDER and its convolution filter are there.
    ServerScaledSignature();
    ~ServerScaledSignature();
    ServerScaledSignature(const ServerScaledSignature&) = delete;
    ServerScaledSignature& operator=(const ServerScaledSignature&) = delete;

    bool isReady() const { return ready; }
    std::optional<QByteArray> signatureOf(const QRect& area);

    // The best any server-side scaling can do: the exact mean of each cell's sRGB codes, per
    // channel, turned into linear light afterwards. Computed here, on the picture itself.
    static QByteArray idealOf(const QImage& picture);

private:
    void setKernelFor(QSize area);

    xcb_connection_t* connection = nullptr;
    xcb_window_t root = 0;
    xcb_render_picture_t source = 0;
    xcb_pixmap_t targetPixmap = 0;
    xcb_render_picture_t target = 0;
    QSize kernelArea;
    bool ready = false;
};

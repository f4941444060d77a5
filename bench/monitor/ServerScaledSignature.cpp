#include "ServerScaledSignature.h"

#include "monitor/AreaSignature.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int grid = AreaSignature::gridSize;

template <typename T> struct Freed {
    T* p;
    ~Freed() { std::free(p); }
};

xcb_render_fixed_t fixed(double v)
{
    return xcb_render_fixed_t(std::lround(v * 65536.0));
}

double linear(double code)
{
    const double c = code / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

} // namespace

ServerScaledSignature::ServerScaledSignature()
{
    connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) return;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    root = screen->root;
    Freed<xcb_render_query_version_reply_t> version { xcb_render_query_version_reply(
        connection, xcb_render_query_version(connection, 0, 11), nullptr) };
    if (!version.p) return;
    Freed<xcb_render_query_pict_formats_reply_t> formats { xcb_render_query_pict_formats_reply(
        connection, xcb_render_query_pict_formats(connection), nullptr) };
    if (!formats.p) return;
    // The picture format of the root's visual.
    xcb_render_pictformat_t format = 0;
    for (auto s = xcb_render_query_pict_formats_screens_iterator(formats.p); s.rem && !format;
         xcb_render_pictscreen_next(&s))
        for (auto d = xcb_render_pictscreen_depths_iterator(s.data); d.rem && !format; xcb_render_pictdepth_next(&d))
            for (auto v = xcb_render_pictdepth_visuals_iterator(d.data); v.rem; xcb_render_pictvisual_next(&v))
                if (v.data->visual == screen->root_visual) format = v.data->format;
    if (!format) return;

    source = xcb_generate_id(connection);
    const uint32_t includeInferiors = XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS;
    xcb_render_create_picture(connection, source, root, format, XCB_RENDER_CP_SUBWINDOW_MODE, &includeInferiors);
    targetPixmap = xcb_generate_id(connection);
    xcb_create_pixmap(connection, screen->root_depth, targetPixmap, root, grid, grid);
    target = xcb_generate_id(connection);
    xcb_render_create_picture(connection, target, targetPixmap, format, 0, nullptr);
    // A filter the server lacks is an error here, not later.
    const char name[] = "convolution";
    const xcb_render_fixed_t oneByOne[] = { fixed(1), fixed(1), fixed(1) };
    Freed<xcb_generic_error_t> error { xcb_request_check(connection,
        xcb_render_set_picture_filter_checked(connection, source, uint16_t(std::strlen(name)), name, 3, oneByOne)) };
    ready = !error.p;
}

ServerScaledSignature::~ServerScaledSignature()
{
    if (target) xcb_render_free_picture(connection, target);
    if (targetPixmap) xcb_free_pixmap(connection, targetPixmap);
    if (source) xcb_render_free_picture(connection, source);
    xcb_disconnect(connection);
}

void ServerScaledSignature::setKernelFor(QSize area)
{
    if (area == kernelArea) return;
    kernelArea = area;
    // A box of one cell: every tap the same weight.
    const int w = std::max(1, int(std::lround(double(area.width()) / grid)));
    const int h = std::max(1, int(std::lround(double(area.height()) / grid)));
    std::vector<xcb_render_fixed_t> values { fixed(w), fixed(h) };
    values.resize(size_t(2 + w * h), fixed(1.0 / (w * h)));
    const char name[] = "convolution";
    xcb_render_set_picture_filter(
        connection, source, uint16_t(std::strlen(name)), name, uint32_t(values.size()), values.data());
}

std::optional<QByteArray> ServerScaledSignature::signatureOf(const QRect& area)
{
    if (!ready || area.isEmpty()) return std::nullopt;
    setKernelFor(area.size());
    // Destination pixel centres land on cell centres of the area.
    const double sx = double(area.width()) / grid;
    const double sy = double(area.height()) / grid;
    const xcb_render_transform_t transform { fixed(sx), 0, fixed(area.x()), 0, fixed(sy), fixed(area.y()), 0, 0,
        fixed(1) };
    xcb_render_set_picture_transform(connection, source, transform);
    xcb_render_composite(connection, XCB_RENDER_PICT_OP_SRC, source, 0, target, 0, 0, 0, 0, 0, 0, grid, grid);
    Freed<xcb_get_image_reply_t> reply { xcb_get_image_reply(connection,
        xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, targetPixmap, 0, 0, grid, grid, ~0u), nullptr) };
    if (!reply.p || xcb_get_image_data_length(reply.p) < grid * grid * 4) return std::nullopt;
    QImage cells(grid, grid, QImage::Format_RGB32);
    std::memcpy(cells.bits(), xcb_get_image_data(reply.p), size_t(grid * grid * 4));
    // One pixel a cell: the signature is each pixel's own luminance.
    return AreaSignature::downsampleToSignature(cells);
}

QByteArray ServerScaledSignature::idealOf(const QImage& picture)
{
    const QImage pixels = picture.convertToFormat(QImage::Format_RGB32);
    const int width = pixels.width();
    const int height = pixels.height();
    std::array<std::array<double, 3>, grid * grid> sums {};
    for (int y = 0; y < height; ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(pixels.constScanLine(y));
        for (int x = 0; x < width; ++x) {
            // Pixels that straddle a cell boundary count in both cells by their share.
            for (int cy = y * grid / height; cy < grid && cy * height < (y + 1) * grid; ++cy) {
                const double wy
                    = std::min((y + 1.0) * grid, (cy + 1.0) * height) - std::max(y * 1.0 * grid, cy * 1.0 * height);
                for (int cx = x * grid / width; cx < grid && cx * width < (x + 1) * grid; ++cx) {
                    const double wx
                        = std::min((x + 1.0) * grid, (cx + 1.0) * width) - std::max(x * 1.0 * grid, cx * 1.0 * width);
                    auto& s = sums[size_t(cy * grid + cx)];
                    const double w = wx * wy;
                    s[0] += w * qRed(line[x]);
                    s[1] += w * qGreen(line[x]);
                    s[2] += w * qBlue(line[x]);
                }
            }
        }
    }
    QByteArray signature(grid * grid, '\0');
    const double cellWeight = double(width) * height;
    for (int i = 0; i < grid * grid; ++i) {
        const auto& s = sums[size_t(i)];
        const double luminance = 0.2126 * linear(s[0] / cellWeight) + 0.7152 * linear(s[1] / cellWeight)
            + 0.0722 * linear(s[2] / cellWeight);
        signature[i] = char(std::clamp(std::lround(luminance * 255.0), 0L, 255L));
    }
    return signature;
}

#include "devices/ChromeStyles.h"

#include "devices/CameraOverlayGeometry.h"

#include <QFont>
#include <QFontMetricsF>
#include <QImage>
#include <QLinearGradient>
#include <QPaintDevice>
#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace ChromeStyles {

namespace {

QColor rgba(double r, double g, double b, double a)
{
    return QColor::fromRgbF(float(r), float(g), float(b), float(std::clamp(a, 0.0, 1.0)));
}

QColor cyan(double alpha)
{
    return rgba(0.32, 0.69, 1.0, alpha);
}

QColor ink(double alpha)
{
    return rgba(0.06, 0.09, 0.18, alpha);
}

QColor white(double alpha)
{
    return rgba(1, 1, 1, alpha);
}

QColor black(double alpha)
{
    return rgba(0, 0, 0, alpha);
}

const QColor deepBlue = rgba(0.18, 0.45, 0.85, 0.95);

// Smooth 0 -> 1 -> 0 once every `period` seconds, 0 at t = 0.
double breath(double t, double period)
{
    const double phase = std::fmod(t, period) / period;
    return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * phase);
}

// 0 -> 1 over every `period` seconds, then back to 0 at once.
double ramp(double t, double period)
{
    const double p = std::fmod(t, period) / period;
    return p < 0 ? p + 1 : p;
}

// The point `d` along the border of `r`, from (left, top) along the top edge first.
QPointF walk(const QRectF& r, double d)
{
    const double w = r.width(), h = r.height();
    const double perimeter = 2 * (w + h);
    d = std::fmod(perimeter + std::fmod(d, perimeter), perimeter);
    if (d <= w) return { r.left() + d, r.top() };
    const double e = d - w;
    if (e <= h) return { r.right(), r.top() + e };
    const double f = e - h;
    if (f <= w) return { r.right() - f, r.bottom() };
    return { r.left(), r.bottom() - (f - w) };
}

QPainterPath outlineOf(
    const QPainterPath& path, double width, Qt::PenCapStyle cap = Qt::FlatCap, Qt::PenJoinStyle join = Qt::MiterJoin)
{
    QPainterPathStroker stroker;
    stroker.setWidth(width);
    stroker.setCapStyle(cap);
    stroker.setJoinStyle(join);
    return stroker.createStroke(path);
}

void stroke(QPainter& p, const QPainterPath& path, const QBrush& brush, double width, Qt::PenCapStyle cap = Qt::FlatCap,
    Qt::PenJoinStyle join = Qt::MiterJoin)
{
    p.strokePath(path, QPen(brush, width, Qt::SolidLine, cap, join));
}

// Three box blurs in a row come close to a Gaussian of `sigma`; the alpha of `mask` is blurred in
// place, rows then columns.
void blurAlpha(QImage& mask, double sigma)
{
    const int radius = int(std::lround((std::sqrt(4 * sigma * sigma + 1) - 1) / 2));
    if (radius < 1) return;
    const int w = mask.width(), h = mask.height();
    const int span = 2 * radius + 1;
    std::vector<int> line(size_t(std::max(w, h)));
    const auto pass = [&](uchar* first, int count, qsizetype stride) {
        for (int i = 0; i < count; ++i)
            line[size_t(i)] = first[i * stride];
        // Outside the image counts as clear.
        int sum = 0;
        for (int i = 0; i < std::min(radius, count); ++i)
            sum += line[size_t(i)];
        for (int i = 0; i < count; ++i) {
            if (i + radius < count) sum += line[size_t(i + radius)];
            first[i * stride] = uchar((sum + span / 2) / span);
            if (i - radius >= 0) sum -= line[size_t(i - radius)];
        }
    };
    for (int round = 0; round < 3; ++round) {
        for (int y = 0; y < h; ++y)
            pass(mask.scanLine(y), w, 1);
        for (int x = 0; x < w; ++x)
            pass(mask.scanLine(0) + x, h, mask.bytesPerLine());
    }
}

// The shadow that `caster` (a filled area, in the painter's coordinates) throws: moved by `offset`,
// blurred by `blur` as a drawing library's shadow blur is (a Gaussian of half that), in `color`.
// Only the shadow is painted, not the caster. Where `keepClear` covers, nothing is painted: the
// bubble's shadow falls around it and never darkens the camera picture under the frame.
//
// The shadow is rasterised in device pixels, within the device, whatever the transform. A blur
// this wide has no detail finer than a few pixels, so it is worked out at a fraction of the
// resolution and drawn back enlarged and smoothed: a fraction of the pixels to blur, for every
// frame of a recording.
void castShadow(QPainter& p, const QPainterPath& caster, QPointF offset, double blur, const QColor& color,
    const QPainterPath& keepClear = {})
{
    if (caster.isEmpty() || color.alpha() == 0) return;
    const QTransform toDevice = p.combinedTransform();
    const double scale = std::sqrt(std::abs(toDevice.determinant()));
    const double sigma = std::max(blur, 0.0) * scale / 2;
    const int reach = int(std::ceil(3 * sigma)) + 1;
    const QPointF moved = toDevice.map(offset) - toDevice.map(QPointF(0, 0));
    const QPainterPath shape = toDevice.map(caster).translated(moved);
    QRect bounds = shape.boundingRect().toAlignedRect().adjusted(-reach, -reach, reach, reach);
    if (const QPaintDevice* device = p.device()) bounds &= QRect(0, 0, device->width(), device->height());
    if (bounds.isEmpty()) return;

    const int step = std::max(1, int(std::lround(sigma / 2.5)));
    const QSize reduced((bounds.width() + step - 1) / step, (bounds.height() + step - 1) / step);
    QImage mask(reduced, QImage::Format_Alpha8);
    mask.fill(0);
    {
        QPainter m(&mask);
        m.setRenderHint(QPainter::Antialiasing, true);
        m.scale(1.0 / step, 1.0 / step);
        m.translate(-bounds.topLeft());
        m.fillPath(shape, Qt::black);
    }
    blurAlpha(mask, sigma / step);

    QImage tinted(reduced, QImage::Format_ARGB32_Premultiplied);
    const double alpha = color.alphaF();
    for (int y = 0; y < reduced.height(); ++y) {
        const uchar* from = mask.constScanLine(y);
        auto* to = reinterpret_cast<QRgb*>(tinted.scanLine(y));
        for (int x = 0; x < reduced.width(); ++x) {
            const int a = int(std::lround(from[x] * alpha));
            to[x] = qPremultiply(qRgba(color.red(), color.green(), color.blue(), a));
        }
    }
    p.save();
    p.resetTransform();
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    if (!keepClear.isEmpty()) {
        QPainterPath around;
        around.addRect(QRectF(bounds));
        p.setClipPath(around.subtracted(toDevice.map(keepClear)), Qt::IntersectClip);
    }
    p.drawImage(QRectF(QPointF(bounds.topLeft()), QSizeF(reduced * step)), tinted);
    p.restore();
}

// A stroke's own halo: the shadow that a stroke of `width` along `path` would cast, without offset.
void glow(QPainter& p, const QPainterPath& path, double width, double blur, const QColor& color,
    Qt::PenCapStyle cap = Qt::FlatCap, Qt::PenJoinStyle join = Qt::MiterJoin)
{
    castShadow(p, outlineOf(path, width, cap, join), QPointF(0, 0), blur, color);
}

// Everything one style needs to know. `top` and `bottom` are the bubble's visual top and bottom
// edges in the present coordinates: with y upward in a recording the top is the larger y.
struct Chrome {
    QPainter& p;
    QRectF r;
    CameraShape shape;
    double t;
    Look look;

    double S() const { return std::min(r.width(), r.height()); }
    double L() const { return std::max(0.012 * S(), 1.0); }
    bool live() const { return look == Look::live; }
    double top() const { return live() ? r.top() : r.bottom(); }
    double bottom() const { return live() ? r.bottom() : r.top(); }
    // Down the screen by `d`, in the present coordinates.
    QPointF down(double d) const { return { 0, live() ? d : -d }; }
    QPainterPath bubble(double grow = 0) const { return cameraBubblePath(r.adjusted(-grow, -grow, grow, grow), shape); }
};

QPainterPath cornerBrackets(const QRectF& r, double n)
{
    QPainterPath path;
    const auto corner = [&](QPointF c, double sx, double sy) {
        path.moveTo(c.x(), c.y() + sy * n);
        path.lineTo(c);
        path.lineTo(c.x() + sx * n, c.y());
    };
    corner(r.topLeft(), 1, 1);
    corner(r.topRight(), -1, 1);
    corner(r.bottomLeft(), 1, -1);
    corner(r.bottomRight(), -1, -1);
    return path;
}

void soft(const Chrome& c)
{
    const double S = c.S();
    const QPainterPath caster = c.live() ? c.bubble(0.04 * S) : c.bubble();
    castShadow(c.p, caster, c.down(0.04 * S), 0.12 * S, black(0.45), c.bubble());
    if (c.live()) {
        QLinearGradient fade(0, c.top(), 0, c.bottom());
        fade.setColorAt(0, white(0.55));
        fade.setColorAt(1, white(0.18));
        stroke(c.p, c.bubble(), fade, c.L());
    } else {
        stroke(c.p, c.bubble(), white(0.55), c.L());
    }
}

void polaroid(const Chrome& c)
{
    const double S = c.S();
    const double band = std::max(0.06 * S, 4.0);
    castShadow(c.p, c.bubble(0.6 * band), c.down(0.04 * S), 0.1 * S, black(0.45), c.bubble());
    stroke(c.p, c.bubble(0.5 * band), white(0.96), band);
    stroke(c.p, c.bubble(), black(0.18), 0.5);
}

void beveled(const Chrome& c)
{
    const double S = c.S();
    const QPainterPath caster = c.live() ? c.bubble(0.05 * S) : c.bubble();
    castShadow(c.p, caster, c.down(0.06 * S), 0.14 * S, black(0.5), c.bubble());
    // Light from above: a bright rim on top fading into a dark one underneath.
    QLinearGradient relief(c.r.center().x(), c.top(), c.r.center().x(), c.bottom());
    relief.setColorAt(0, white(0.65));
    relief.setColorAt(0.35, white(0.05));
    relief.setColorAt(0.65, black(0.0));
    relief.setColorAt(1, black(0.4));
    c.p.fillPath(outlineOf(c.bubble(), 1.3 * c.L()), relief);
}

void edge(const Chrome& c)
{
    QLinearGradient sheen(QPointF(c.r.left(), c.top()), QPointF(c.r.right(), c.bottom()));
    sheen.setColorAt(0, rgba(0.42, 0.78, 1.0, 1.0));
    sheen.setColorAt(1, rgba(0.2, 0.5, 0.95, 1.0));
    c.p.fillPath(outlineOf(c.bubble(), 1.6 * c.L()), sheen);
}

void outline(const Chrome& c)
{
    const double b = breath(c.t, 2.6);
    glow(c.p, c.bubble(), 2.5, 10 + 14 * b, cyan(0.45 + 0.3 * b));
    stroke(c.p, c.bubble(), cyan(0.85), c.L());
}

void march(const Chrome& c)
{
    const double S = c.S();
    const double L = c.L();
    stroke(c.p, c.bubble(), ink(0.65), L);
    // A pen's dashes are counted in line widths.
    const double width = 1.4 * L;
    const double on = 0.06 * S, off = 0.045 * S;
    QPen ants(cyan(0.95), width, Qt::CustomDashLine, Qt::FlatCap, Qt::MiterJoin);
    ants.setDashPattern({ on / width, off / width });
    ants.setDashOffset(-(on + off) * ramp(c.t, 1.5) / width);
    c.p.strokePath(c.bubble(), ants);
}

void glass(const Chrome& c)
{
    const double b = breath(c.t, 2.4);
    glow(c.p, c.bubble(), 3, 12 + 12 * b, cyan(0.45 + 0.3 * b));
    stroke(c.p, c.bubble(), cyan(0.85), c.live() ? 1.5 : c.L());
    stroke(c.p, cameraBubblePath(c.r.adjusted(1.5, 1.5, -1.5, -1.5), c.shape), cyan(0.18), 1);
}

void bracket(const Chrome& c)
{
    // A period of 2 seconds, written as its own phase.
    const double b = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * std::fmod(c.t, 2) * 0.5);
    const double arm = std::clamp(0.1 * c.r.width(), 14.0, 36.0) + 3 * b;
    const double width = 1.6 * c.L();
    // Always on the rectangle's corners: a round bubble gets square brackets around it.
    const QPainterPath path = cornerBrackets(c.r, arm);
    glow(c.p, path, width, 8 + 8 * b, cyan(0.45 + 0.35 * b), Qt::RoundCap, Qt::RoundJoin);
    stroke(c.p, path, cyan(0.95), width, Qt::RoundCap, Qt::RoundJoin);
    stroke(c.p, path, cyan(0.95), width, Qt::RoundCap, Qt::RoundJoin);
}

void tactical(const Chrome& c)
{
    const QRectF& r = c.r;
    const double S = c.S();
    const double L = c.L();
    {
        // A scanline sweeping from the lower edge of the coordinates to the upper one.
        c.p.save();
        c.p.setClipPath(c.bubble(), Qt::IntersectClip);
        const double y = r.top() + r.height() * ramp(c.t, 3.5);
        QLinearGradient scan(r.center().x(), y - 18, r.center().x(), y + 18);
        scan.setColorAt(0, cyan(0.0));
        scan.setColorAt(0.5, cyan(0.3));
        scan.setColorAt(1, cyan(0.0));
        c.p.fillRect(QRectF(r.left(), y - 18, r.width(), 36), scan);
        c.p.restore();
    }
    stroke(c.p, c.bubble(), ink(0.85), L);
    bracket(c);
    const double inset = std::max(0.04 * S, 4.0);
    const double half = std::max(0.04 * r.width(), 12.0) * 0.5;
    const QPointF mid = r.center();
    QPainterPath dashes;
    dashes.moveTo(mid.x() - half, r.top() + inset);
    dashes.lineTo(mid.x() + half, r.top() + inset);
    dashes.moveTo(mid.x() - half, r.bottom() - inset);
    dashes.lineTo(mid.x() + half, r.bottom() - inset);
    dashes.moveTo(r.left() + inset, mid.y() - half);
    dashes.lineTo(r.left() + inset, mid.y() + half);
    dashes.moveTo(r.right() - inset, mid.y() - half);
    dashes.lineTo(r.right() - inset, mid.y() + half);
    stroke(c.p, dashes, cyan(0.85), 1.3 * L);
}

void pulse(const Chrome& c)
{
    const double S = c.S();
    const double L = c.L();
    const double b = breath(c.t, 1.6);
    // The ripple runs on a period of its own, longer than the breath.
    double q = std::fmod(c.t, 2) * 0.5;
    if (q < 0) q += 1;
    stroke(c.p, c.bubble(0.1 * S * q), cyan((1 - q) * 0.55), 1);
    glow(c.p, c.bubble(), L + L * b + 1, 14 + 14 * b, cyan(0.35 + 0.55 * b));
    stroke(c.p, c.bubble(), cyan(0.55 + 0.4 * b), L + L * b);
}

void wave(const Chrome& c)
{
    const QRectF& r = c.r;
    const double p = ramp(c.t, 3.2);
    const double perimeter = 2 * (r.width() + r.height());
    stroke(c.p, c.bubble(), cyan(0.32), c.live() ? 1.5 : c.L());
    struct Comet {
        double offset, alpha, radius;
    };
    // The radii are pixels: a comet keeps its length on any bubble.
    for (const Comet& comet : { Comet { 0.0, 0.95, 70 }, Comet { -0.5, 0.55, 45 } }) {
        const double u = p + comet.offset;
        double f = u - std::trunc(u);
        if (f < 0) f += 1;
        const QPointF centre = walk(r, f * perimeter);
        QRadialGradient light(centre, comet.radius);
        light.setColorAt(0, white(comet.alpha));
        light.setColorAt(0.25, cyan(0.85 * comet.alpha));
        light.setColorAt(1, cyan(0.0));
        const QRectF reach(centre.x() - comet.radius, centre.y() - comet.radius, 2 * comet.radius, 2 * comet.radius);
        QPainterPath lit;
        lit.addRect(reach);
        c.p.fillPath(outlineOf(c.bubble(), 4).intersected(lit), light);
    }
    const QPointF head = walk(r, p * perimeter);
    QPainterPath dot;
    dot.addEllipse(head, 2.5, 2.5);
    castShadow(c.p, dot, QPointF(0, 0), 14, cyan(0.65));
    c.p.fillPath(dot, cyan(0.95));
}

void livePill(const Chrome& c)
{
    QFont font;
    font.setPixelSize(11);
    font.setWeight(QFont::Black);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 1.2);
    const QFontMetricsF metrics(font);
    const QString text = QStringLiteral("LIVE");
    const double tw = metrics.horizontalAdvance(text);
    const double th = metrics.height();
    const QRectF& r = c.r;

    QRectF pill;
    if (c.live()) {
        pill = QRectF(r.right() - 50 - 8, r.top() + 8, 50, 19);
    } else {
        // Whole pixels, as a recording's pill is set: at the visual top right, inside the bubble.
        const QRectF exact(r.right() - (tw + 28) - 8, r.bottom() - (th + 8) - 8, tw + 28, th + 8);
        const double left = std::floor(exact.left()), bottom = std::floor(exact.top());
        pill = QRectF(left, bottom, std::ceil(exact.right()) - left, std::ceil(exact.bottom()) - bottom);
    }
    const double radius = c.live() ? 9.5 : (th + 8) / 2;
    QPainterPath body;
    body.addRoundedRect(pill, radius, radius);
    QLinearGradient fill(QPointF(pill.left(), c.live() ? pill.top() : pill.bottom()),
        QPointF(pill.right(), c.live() ? pill.bottom() : pill.top()));
    fill.setColorAt(0, cyan(0.95));
    fill.setColorAt(1, deepBlue);
    c.p.fillPath(body, fill);

    const QPointF dotCentre(pill.left() + 9, pill.center().y());
    QPainterPath dot;
    dot.addEllipse(dotCentre, 3, 3);
    c.p.fillPath(dot, white(0.85 + 0.15 * breath(c.t, 0.9)));
    const double p = ramp(c.t, 0.9);
    QPainterPath ring;
    ring.addEllipse(dotCentre, 3 + 5 * p, 3 + 5 * p);
    stroke(c.p, ring, white((1 - p) * 0.3), 1);

    // The text is set in device pixels, upright whatever way y runs here.
    const QTransform toDevice = c.p.combinedTransform();
    QPointF baseline;
    if (c.live()) {
        const QPointF centre(pill.center().x() + 7, pill.center().y());
        baseline = toDevice.map(QPointF(centre.x() - tw / 2, centre.y() + (metrics.ascent() - metrics.descent()) / 2));
    } else {
        // The text's origin is its baseline's left end, a little above the pill's lower edge.
        baseline = toDevice.map(QPointF(pill.left() + 14 + 3, pill.top() + ((th + 8) - th) * 0.5 - 1));
    }
    c.p.save();
    c.p.resetTransform();
    c.p.setFont(font);
    c.p.setPen(white(1));
    c.p.drawText(baseline, text);
    c.p.restore();
}

void frame(const Chrome& c)
{
    const QRectF& r = c.r;
    const double S = c.S();
    const double L = c.L();
    const double b = breath(c.t, 2.4);
    // This style ignores the shape: its angular corners belong on the rectangle.
    QPainterPath plain;
    plain.addRect(r);
    stroke(c.p, plain, ink(0.85), c.live() ? 2.0 : 1.3 * L);

    const double arm = std::clamp(0.12 * r.width(), 22.0, 60.0);
    const double band = c.live() ? 6.0 : std::max(0.06 * S, 4.0);
    QPainterPath corners;
    const auto corner = [&](QPointF at, double sx, double sy) {
        const double x = at.x(), y = at.y();
        QPolygonF shape;
        shape << QPointF(x, y) << QPointF(x + sx * arm, y) << QPointF(x + sx * (arm - band), y + sy * band)
              << QPointF(x + sx * band, y + sy * band) << QPointF(x + sx * band, y + sy * arm)
              << QPointF(x, y + sy * arm);
        corners.addPolygon(shape);
        corners.closeSubpath();
    };
    corner(r.topLeft(), 1, 1);
    corner(r.topRight(), -1, 1);
    corner(r.bottomLeft(), 1, -1);
    corner(r.bottomRight(), -1, -1);
    c.p.fillPath(corners, cyan(0.85 + 0.15 * b));

    const double k = std::max(0.06 * r.width(), 16.0);
    const QPointF mid = r.center();
    const QColor tick = cyan(0.55 + 0.4 * b);
    c.p.fillRect(QRectF(mid.x() - k / 2, r.top() + 8 - 1.5, k, 3), tick);
    c.p.fillRect(QRectF(mid.x() - k / 2, r.bottom() - 8 - 1.5, k, 3), tick);
    c.p.fillRect(QRectF(r.left() + 8 - 1.5, mid.y() - k / 2, 3, k), tick);
    c.p.fillRect(QRectF(r.right() - 8 - 1.5, mid.y() - k / 2, 3, k), tick);

    livePill(c);
}

} // namespace

void draw(QPainter& painter, const QRectF& rect, CameraShape shape, CameraFrameStyle style, double t, Look look)
{
    if (!(rect.width() > 0) || !(rect.height() > 0)) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setRenderHint(QPainter::TextAntialiasing, true);
    const Chrome c { painter, rect, shape, t, look };
    switch (style) {
    case CameraFrameStyle::soft:
        soft(c);
        break;
    case CameraFrameStyle::polaroid:
        polaroid(c);
        break;
    case CameraFrameStyle::beveled:
        beveled(c);
        break;
    case CameraFrameStyle::edge:
        edge(c);
        break;
    case CameraFrameStyle::outline:
        outline(c);
        break;
    case CameraFrameStyle::march:
        march(c);
        break;
    case CameraFrameStyle::glass:
        glass(c);
        break;
    case CameraFrameStyle::bracket:
        bracket(c);
        break;
    case CameraFrameStyle::tactical:
        tactical(c);
        break;
    case CameraFrameStyle::pulse:
        pulse(c);
        break;
    case CameraFrameStyle::wave:
        wave(c);
        break;
    case CameraFrameStyle::frame:
        frame(c);
        break;
    }
    painter.restore();
}

} // namespace ChromeStyles

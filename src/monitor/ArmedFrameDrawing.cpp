#include "monitor/ArmedFrameDrawing.h"

#include <QFont>
#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

namespace ArmedFrameDrawing {

namespace {

QColor cyan(double alpha)
{
    return QColor::fromRgbF(0.32f, 0.69f, 1.0f, float(std::clamp(alpha, 0.0, 1.0)));
}

QColor ink(double alpha)
{
    return QColor::fromRgbF(0.06f, 0.09f, 0.18f, float(std::clamp(alpha, 0.0, 1.0)));
}

QColor white(double alpha)
{
    return QColor::fromRgbF(1, 1, 1, float(std::clamp(alpha, 0.0, 1.0)));
}

const QColor deepBlue = QColor::fromRgbF(0.18f, 0.45f, 0.85f, 0.95f);

// Grows outward to whole pixels.
QRectF integral(const QRectF& r)
{
    const double left = std::floor(r.left());
    const double top = std::floor(r.top());
    return QRectF(left, top, std::ceil(r.right()) - left, std::ceil(r.bottom()) - top);
}

double perimeter(const QRectF& r)
{
    return 2 * (r.width() + r.height());
}

void strokePath(
    QPainter& p, const QPainterPath& path, const QColor& color, double width, Qt::PenCapStyle cap = Qt::FlatCap)
{
    QPen pen(color, width, Qt::SolidLine, cap, Qt::MiterJoin);
    p.strokePath(path, pen);
}

// A soft halo around a stroke, as a blurred shadow of it would look: a few wider, fainter strokes
// on top of each other, brightest along the line and fading out over about `blur` pixels. The
// stroke itself is drawn too unless `strokeColor` is clear.
void glowPass(QPainter& p, const QPainterPath& path, double blur, const QColor& shadow, const QColor& strokeColor,
    double width, Qt::PenCapStyle cap)
{
    constexpr int layers = 3;
    QColor layer = shadow;
    layer.setAlphaF(shadow.alphaF() * 0.38f);
    for (int i = layers; i >= 1; --i)
        p.strokePath(path, QPen(layer, width + blur * i / layers, Qt::SolidLine, cap, Qt::RoundJoin));
    if (strokeColor.alpha() > 0) strokePath(p, path, strokeColor, width, cap);
}

// The same halo around the outline of a rectangle with rounded corners, drawn as what it is: a
// brightness that depends only on the distance to the outline. Straight edges are strips with a
// linear gradient across them, corners quarter discs with a radial one about the corner's centre.
// Gradient fills cost a small fraction of stroking wide antialiased paths, and the frame is
// painted sixty times a second.
void glowAroundRect(QPainter& p, const QRectF& r, double radius, double width, double blur, const QColor& shadow)
{
    const double reach = width / 2 + blur;
    // Brightness at a distance from the outline, as a fraction of `reach`.
    const std::pair<double, double> falloff[]
        = { { 0, 0.9 }, { width / 2 / reach, 0.8 }, { 0.45, 0.35 }, { 0.75, 0.08 }, { 1, 0 } };
    const auto tint = [&](double level) {
        QColor c = shadow;
        c.setAlphaF(float(shadow.alphaF() * level));
        return c;
    };
    QGradientStops across;
    for (auto it = std::rbegin(falloff); it != std::rend(falloff); ++it)
        across.append({ 0.5 - 0.5 * it->first, tint(it->second) });
    for (const auto& [d, level] : falloff)
        if (d > 0) across.append({ 0.5 + 0.5 * d, tint(level) });

    const auto strip = [&](QPointF from, QPointF to, const QRectF& area) {
        QLinearGradient gradient(from, to);
        gradient.setStops(across);
        p.fillRect(area, gradient);
    };
    const double x0 = r.left() + radius, x1 = r.right() - radius;
    const double y0 = r.top() + radius, y1 = r.bottom() - radius;
    if (x1 > x0) {
        strip({ x0, r.top() - reach }, { x0, r.top() + reach }, QRectF(x0, r.top() - reach, x1 - x0, 2 * reach));
        strip(
            { x0, r.bottom() - reach }, { x0, r.bottom() + reach }, QRectF(x0, r.bottom() - reach, x1 - x0, 2 * reach));
    }
    if (y1 > y0) {
        strip({ r.left() - reach, y0 }, { r.left() + reach, y0 }, QRectF(r.left() - reach, y0, 2 * reach, y1 - y0));
        strip({ r.right() - reach, y0 }, { r.right() + reach, y0 }, QRectF(r.right() - reach, y0, 2 * reach, y1 - y0));
    }

    const double outer = radius + reach;
    QGradientStops round;
    round.append({ 0, tint(radius < reach ? 0.35 * (1 - radius / reach) : 0) });
    for (auto it = std::rbegin(falloff); it != std::rend(falloff); ++it)
        if (const double at = radius - it->first * reach; at > 0) round.append({ at / outer, tint(it->second) });
    for (const auto& [d, level] : falloff)
        if (d > 0 || radius > 0) round.append({ (radius + d * reach) / outer, tint(level) });
    const auto corner = [&](QPointF centre, double sx, double sy) {
        QRadialGradient gradient(centre, outer);
        gradient.setStops(round);
        p.fillRect(QRectF(centre.x(), centre.y(), sx * outer, sy * outer).normalized(), gradient);
    };
    corner({ x0, y0 }, -1, -1);
    corner({ x1, y0 }, 1, -1);
    corner({ x0, y1 }, -1, 1);
    corner({ x1, y1 }, 1, 1);
}

// The four corner Ls of arm length `n`, arms running along the edges from each corner.
QPainterPath cornerLs(const QRectF& r, double n)
{
    QPainterPath path;
    const auto corner = [&](QPointF c, double sx, double sy) {
        path.moveTo(c.x(), c.y() + sy * n);
        path.lineTo(c);
        path.lineTo(c.x() + sx * n, c.y());
    };
    corner(r.bottomLeft(), 1, -1);
    corner(r.bottomRight(), -1, -1);
    corner(r.topLeft(), 1, 1);
    corner(r.topRight(), -1, 1);
    return path;
}

// The line around `r` (corners rounded by `radius`): its straight parts as rectangles and only its
// corners as curves, which antialiases at a fraction of the cost of stroking the whole outline.
// Sixty times a second around a large area, that difference is most of the frame's CPU.
void strokeBorder(QPainter& p, const QRectF& r, double radius, double width, const QBrush& color)
{
    const double half = width / 2;
    const double x0 = r.left() + radius, x1 = r.right() - radius;
    const double y0 = r.top() + radius, y1 = r.bottom() - radius;
    if (radius <= 0) {
        p.fillRect(QRectF(r.left() - half, r.top() - half, r.width() + width, width), color);
        p.fillRect(QRectF(r.left() - half, r.bottom() - half, r.width() + width, width), color);
        p.fillRect(QRectF(r.left() - half, r.top() + half, width, r.height() - width), color);
        p.fillRect(QRectF(r.right() - half, r.top() + half, width, r.height() - width), color);
        return;
    }
    if (x1 > x0) {
        p.fillRect(QRectF(x0, r.top() - half, x1 - x0, width), color);
        p.fillRect(QRectF(x0, r.bottom() - half, x1 - x0, width), color);
    }
    if (y1 > y0) {
        p.fillRect(QRectF(r.left() - half, y0, width, y1 - y0), color);
        p.fillRect(QRectF(r.right() - half, y0, width, y1 - y0), color);
    }
    // Only the corners within the clip: a light running along the line paints a small square
    // sixty times a second, and stroking curves is the dear part.
    const QRectF visible = p.hasClipping() ? p.clipBoundingRect() : QRectF();
    QPainterPath corners;
    const QRectF arc(0, 0, 2 * radius, 2 * radius);
    const auto corner = [&](QPointF topLeft, double from) {
        const QRectF box = arc.translated(topLeft);
        if (!visible.isNull() && !visible.intersects(box.adjusted(-width, -width, width, width))) return;
        corners.arcMoveTo(box, from);
        corners.arcTo(box, from, -90);
    };
    corner({ r.left(), r.top() }, 180);
    corner({ x1 - radius, r.top() }, 90);
    corner({ x1 - radius, y1 - radius }, 0);
    corner({ r.left(), y1 - radius }, 270);
    if (corners.isEmpty()) return;
    p.strokePath(corners, QPen(color, width, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
}

// Strokes the line around `r` (corners rounded by `radius`) with a radial gradient around `centre`
// for paint: a light that runs along the line. Only the square the light reaches is rasterised.
void lightAlong(QPainter& p, const QRectF& r, double cornerRadius, double width, QPointF centre, double radius,
    const QGradientStops& stops)
{
    p.save();
    p.setClipRect(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), Qt::IntersectClip);
    QRadialGradient gradient(centre, radius);
    gradient.setStops(stops);
    strokeBorder(p, r, cornerRadius, width, gradient);
    p.restore();
}

// Dashes along the border of `r`, clockwise from the top-left corner: on for `on` pixels, off for
// `off`, the pattern moved forward by `shift`. Each dash is a rectangle on its edge, split at a
// corner: far cheaper than a dashed stroke of a long path.
void dashesAlong(QPainter& p, const QRectF& r, double on, double off, double shift, double width, const QColor& color)
{
    const double w = r.width(), h = r.height(), length = 2 * (w + h), period = on + off;
    if (length <= 0) return;
    const double half = width / 2;
    // Edge by edge: where it starts along the border, its length, and the rectangle of a piece.
    const auto piece = [&](double a, double b) {
        const struct {
            double start, size;
        } edges[] = { { 0, w }, { w, h }, { w + h, w }, { 2 * w + h, h } };
        for (int e = 0; e < 4; ++e) {
            const double from = std::max(a, edges[e].start) - edges[e].start;
            const double to = std::min(b, edges[e].start + edges[e].size) - edges[e].start;
            if (to <= from) continue;
            QRectF rect;
            switch (e) {
            case 0:
                rect = QRectF(r.left() + from, r.top() - half, to - from, width);
                break;
            case 1:
                rect = QRectF(r.right() - half, r.top() + from, width, to - from);
                break;
            case 2:
                rect = QRectF(r.right() - to, r.bottom() - half, to - from, width);
                break;
            default:
                rect = QRectF(r.left() - half, r.bottom() - to, width, to - from);
                break;
            }
            p.fillRect(rect, color);
        }
    };
    const double first = std::fmod(shift, period) - period;
    for (double start = first; start < length; start += period)
        piece(std::max(start, 0.0), std::min(start + on, length));
}

// A pill above the frame: the label's font and size, and the space the pill takes.
struct Pill {
    QRectF rect;
    QFont font;
    QSizeF text;
};

// The font and text size of a pill's label.
Pill label(const QString& text, int pixelSize, double kerning)
{
    Pill out;
    out.font.setPixelSize(pixelSize);
    out.font.setWeight(QFont::Black);
    out.font.setLetterSpacing(QFont::AbsoluteSpacing, kerning);
    const QFontMetricsF metrics(out.font);
    out.text = QSizeF(metrics.horizontalAdvance(text), metrics.height());
    return out;
}

// A pill above the frame `r`, its right edge on the frame's.
Pill placed(Pill pill, const QRectF& r, double padX, double padY, double lift)
{
    const double height = pill.text.height() + padY;
    const double width = pill.text.width() + padX;
    pill.rect = integral(QRectF(r.right() - width, r.top() - lift - height, width, height));
    return pill;
}

// The labels are measured once: the band's shape is asked for many times a second.
Pill livePill(const QRectF& r)
{
    static const Pill live = label(QStringLiteral("LIVE"), 11, 1.4);
    return placed(live, r, 36, 10, 8);
}

Pill armedPill(const QRectF& r)
{
    static const Pill armed = label(QStringLiteral("ARMED"), 10, 1.0);
    return placed(armed, r, 30, 8, 6);
}

void pillBackground(QPainter& p, const QRectF& rect)
{
    QLinearGradient gradient(rect.bottomLeft(), rect.topRight());
    gradient.setColorAt(0, cyan(0.95));
    gradient.setColorAt(1, deepBlue);
    QPainterPath shape;
    shape.addRoundedRect(rect, rect.height() / 2, rect.height() / 2);
    p.fillPath(shape, gradient);
}

void pillText(QPainter& p, const Pill& pill, const QString& text, double x)
{
    p.setFont(pill.font);
    p.setPen(Qt::white);
    const double top = pill.rect.top() + (pill.rect.height() - pill.text.height()) * 0.5 + 1;
    p.drawText(QRectF(x, top, pill.text.width() + 4, pill.text.height()), Qt::AlignLeft | Qt::AlignTop, text);
}

void drawLivePill(QPainter& p, const QRectF& r, double t)
{
    const Pill live = livePill(r);
    pillBackground(p, live.rect);
    const QPointF dot(live.rect.left() + 10, live.rect.center().y());
    p.setPen(Qt::NoPen);
    p.setBrush(white(0.85 + 0.15 * breath(t, 0.9)));
    p.drawEllipse(dot, 4, 4);
    const double ring = ramp(t, 0.9);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(white((1 - ring) * 0.3), 1.0));
    p.drawEllipse(dot, 4 + 6 * ring, 4 + 6 * ring);
    pillText(p, live, QStringLiteral("LIVE"), live.rect.left() + 10 + 4 + 6);
}

void drawArmedPill(QPainter& p, const QRectF& r)
{
    const Pill armed = armedPill(r);
    pillBackground(p, armed.rect);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(armed.rect.left() + 8, armed.rect.center().y()), 3, 3);
    pillText(p, armed, QStringLiteral("ARMED"), armed.rect.left() + 8 + 3 + 4);
}

// The breaths of the styles whose still part does nothing else, in seconds: their steps follow them.
constexpr double outlineBreath = 2.6;
constexpr double glassBreath = 2.4;
constexpr double bracketBreath = 2.0;

void outline(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, outlineBreath);
    glowAroundRect(p, r, 0, 2.5, 12 + 14 * b, cyan(0.4 + 0.35 * b));
    strokeBorder(p, r, 0, 1.5, cyan(0.85));
}

void march(QPainter& p, const QRectF& r, double t)
{
    strokeBorder(p, r, 0, 1.5, ink(0.65));
    // The dashes move forward, clockwise, 14 pixels a period.
    const double width = 2.0;
    dashesAlong(p, r, 8, 6, 14 * ramp(t, 1.5), width, cyan(0.95));
    // The dashes' glow, spread evenly: they cover 8 pixels in 14.
    glowAroundRect(p, r, 0, width, 6, cyan(0.4 * 8 / 14));
}

// A light running along the frame: where it is, how far it reaches, how bright it is.
struct Light {
    QPointF centre;
    double radius;
    double alpha;
};

// The square a light paints in, with a pixel to spare for antialiasing.
QRect lightSquare(const Light& light)
{
    const double reach = light.radius + 1;
    return QRectF(light.centre.x() - reach, light.centre.y() - reach, 2 * reach, 2 * reach).toAlignedRect();
}

// The wave's two comets, the leading one first, then the small halo at the head.
std::vector<Light> waveLights(const QRectF& r, double t)
{
    const double phase = ramp(t, 3.2);
    const double length = perimeter(r);
    std::vector<Light> lights;
    if (length <= 0) return lights;
    for (const auto& [offset, alpha, radius] : { std::tuple { 0.0, 0.95, 70.0 }, std::tuple { -0.5, 0.55, 45.0 } }) {
        double u = offset + phase;
        u -= std::trunc(u);
        if (u < 0) u += 1;
        if (const auto centre = pointOnRect(r, u * length)) lights.push_back({ *centre, radius, alpha });
    }
    if (const auto head = pointOnRect(r, phase * length)) lights.push_back({ *head, 12, 0.65 });
    return lights;
}

void waveLine(QPainter& p, const QRectF& r)
{
    strokeBorder(p, r, 0, 1.5, cyan(0.32));
}

void waveLightsDrawn(QPainter& p, const QRectF& r, double t)
{
    const std::vector<Light> lights = waveLights(r, t);
    if (lights.size() < 3) return;
    for (size_t i = 0; i < 2; ++i)
        lightAlong(p, r, 0, 4, lights[i].centre, lights[i].radius,
            { { 0, white(lights[i].alpha) }, { 0.25, cyan(0.85 * lights[i].alpha) }, { 1, cyan(0) } });
    const Light& head = lights[2];
    QRadialGradient halo(head.centre, head.radius);
    halo.setColorAt(0, cyan(head.alpha));
    halo.setColorAt(1, cyan(0));
    p.fillRect(
        QRectF(head.centre.x() - head.radius, head.centre.y() - head.radius, 2 * head.radius, 2 * head.radius), halo);
    p.setPen(Qt::NoPen);
    p.setBrush(cyan(0.95));
    p.drawEllipse(head.centre, 2.5, 2.5);
}

// The glint that runs round the glass frame.
std::optional<Light> glassShimmer(const QRectF& r, double t)
{
    const auto centre = pointOnRect(r, ramp(t, 4.5) * perimeter(r));
    if (!centre) return std::nullopt;
    return Light { *centre, 60, 0.55 };
}

void glass(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, glassBreath);
    glowAroundRect(p, r.adjusted(-1, -1, 1, 1), 12, 3, 18 + 12 * b, cyan(0.45 + 0.3 * b));
    strokeBorder(p, r.adjusted(-1, -1, 1, 1), 12, 1.5, cyan(0.85));
    strokeBorder(p, r.adjusted(1.5, 1.5, -1.5, -1.5), 10.5, 1.0, cyan(0.18));
}

void glassShimmerDrawn(QPainter& p, const QRectF& r, double t)
{
    const auto shimmer = glassShimmer(r, t);
    if (!shimmer) return;
    lightAlong(p, r.adjusted(-1, -1, 1, 1), 12, 2.5, shimmer->centre, shimmer->radius,
        { { 0, white(shimmer->alpha) }, { 1, white(0) } });
}

void bracket(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, bracketBreath);
    const double arm = std::clamp(r.width() * 0.1, 18.0, 48.0) + 4 * b;
    const QPainterPath path = cornerLs(r, arm);
    glowPass(p, path, 10 + 8 * b, cyan(0.45 + 0.35 * b), cyan(0.95), 2.5, Qt::RoundCap);
    strokePath(p, path, cyan(0.95), 2.5, Qt::RoundCap);
}

// The tactical scanline's strip: it runs from the top edge to the bottom one, and jumps back.
QRectF scanStrip(const QRectF& r, double t)
{
    const double y = r.top() + r.height() * ramp(t, 3.5);
    return QRectF(r.left(), y - 18, r.width(), 36);
}

// The scanline passes over the marks that stand still, inside the frame's line.
void tacticalScan(QPainter& p, const QRectF& r, double t)
{
    p.save();
    p.setClipRect(r, Qt::IntersectClip);
    const QRectF strip = scanStrip(r, t);
    QLinearGradient scan(QPointF(r.center().x(), strip.top()), QPointF(r.center().x(), strip.bottom()));
    scan.setColorAt(0, cyan(0));
    scan.setColorAt(0.5, cyan(0.3));
    scan.setColorAt(1, cyan(0));
    p.fillRect(strip, scan);
    p.restore();
}

void tactical(QPainter& p, const QRectF& r)
{
    strokeBorder(p, r, 0, 1.5, ink(0.85));
    const QPainterPath corners = cornerLs(r, std::max(r.width() * 0.07, 22.0));
    glowPass(p, corners, 12, cyan(0.55), cyan(1.0), 2.5, Qt::FlatCap);
    strokePath(p, corners, cyan(1.0), 2.5);

    const double h = std::max(r.width() * 0.04, 12.0) / 2;
    const QPointF c = r.center();
    QPainterPath accents;
    accents.moveTo(c.x() - h, r.top() + 8);
    accents.lineTo(c.x() + h, r.top() + 8);
    accents.moveTo(c.x() - h, r.bottom() - 8);
    accents.lineTo(c.x() + h, r.bottom() - 8);
    accents.moveTo(r.left() + 8, c.y() - h);
    accents.lineTo(r.left() + 8, c.y() + h);
    accents.moveTo(r.right() - 8, c.y() - h);
    accents.lineTo(r.right() - 8, c.y() + h);
    strokePath(p, accents, cyan(0.85), 2.0);

    drawArmedPill(p, r);
}

void pulse(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 1.6);
    // The ripple keeps its own, slower beat.
    const double ripple = std::clamp(std::fmod(t, 2.0) * 0.5, 0.0, 1.0);
    const double grow = 14 * ripple;
    strokeBorder(p, r.adjusted(-grow, -grow, grow, grow), grow + 10, 1.0, cyan((1 - ripple) * 0.55));
    glowAroundRect(p, r, 10, 1.5 + 1.5 * b + 1.0, 18 + 14 * b, cyan(0.35 + 0.55 * b));
    strokeBorder(p, r, 10, 1.5 + 1.5 * b, cyan(0.55 + 0.4 * b));
}

void frame(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 2.4);
    strokeBorder(p, r, 0, 2.0, ink(0.85));

    // Each corner is a band 6 thick along both edges, its ends chamfered.
    const double c = std::clamp(r.width() * 0.1, 28.0, 80.0);
    p.setPen(Qt::NoPen);
    p.setBrush(cyan(0.85 + 0.15 * b));
    const auto corner = [&](QPointF o, double sx, double sy) {
        const QPointF points[] = { o, { o.x() + sx * c, o.y() }, { o.x() + sx * (c - 6), o.y() + sy * 6 },
            { o.x() + sx * 6, o.y() + sy * 6 }, { o.x() + sx * 6, o.y() + sy * c }, { o.x(), o.y() + sy * c } };
        p.drawPolygon(points, 6);
    };
    corner(r.bottomLeft(), 1, -1);
    corner(r.bottomRight(), -1, -1);
    corner(r.topLeft(), 1, 1);
    corner(r.topRight(), -1, 1);

    const double k = std::max(r.width() * 0.06, 20.0);
    const QPointF m = r.center();
    p.setBrush(cyan(0.55 + 0.4 * b));
    p.drawRect(QRectF(m.x() - k / 2, r.top() + 10 - 1.5, k, 3));
    p.drawRect(QRectF(m.x() - k / 2, r.bottom() - 10 - 1.5, k, 3));
    p.drawRect(QRectF(r.left() + 10 - 1.5, m.y() - k / 2, 3, k));
    p.drawRect(QRectF(r.right() - 10 - 1.5, m.y() - k / 2, 3, k));

    drawLivePill(p, r, t);
}

// The period of a style whose still part only breathes; none for the others.
std::optional<double> breathOnly(AreaOverlayStyle style)
{
    switch (style) {
    case AreaOverlayStyle::outline:
        return outlineBreath;
    case AreaOverlayStyle::glass:
        return glassBreath;
    case AreaOverlayStyle::bracket:
        return bracketBreath;
    default:
        return std::nullopt;
    }
}

// The phases (fractions of a period) at which a breath crosses its levels: 0, rising to the top at
// one half, falling back.
const std::array<double, 2 * breathLevels>& breathCrossings()
{
    static const auto crossings = [] {
        std::array<double, 2 * breathLevels> phases {};
        for (int level = 0; level <= breathLevels; ++level) {
            const double rising = std::acos(1 - 2.0 * level / breathLevels) / (2 * std::numbers::pi);
            phases[size_t(level)] = rising;
            if (level > 0 && level < breathLevels) phases[size_t(2 * breathLevels - level)] = 1 - rising;
        }
        return phases;
    }();
    return crossings;
}

// The step of what stands still that `t` falls in: its number, the moment it is drawn at, and the
// moment the next one begins.
struct StillStep {
    long long number = 0;
    double moment = 0;
    double next = 0;
};

StillStep stillStep(AreaOverlayStyle style, double t)
{
    if (const auto period = breathOnly(style)) {
        const auto& crossings = breathCrossings();
        const double cycles = std::floor(t / *period);
        const double phase = std::clamp(t / *period - cycles, 0.0, 1.0);
        const size_t at = size_t(std::upper_bound(crossings.begin(), crossings.end(), phase) - crossings.begin()) - 1;
        const double next = at + 1 < crossings.size() ? crossings[at + 1] : 1.0;
        return { (long long)(cycles) * (long long)(crossings.size()) + (long long)(at),
            (cycles + crossings[at]) * *period, (cycles + next) * *period };
    }
    const double number = std::floor(t * slowSteps);
    return { (long long)(number), number / slowSteps, (number + 1) / slowSteps };
}

// Whether anything that stands still in `style` changes with time.
bool stillMoves(AreaOverlayStyle style)
{
    return style != AreaOverlayStyle::wave && style != AreaOverlayStyle::tactical;
}

} // namespace

double breath(double t, double period)
{
    const double phase = std::fmod(t, period) / period;
    return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * phase);
}

double ramp(double t, double period)
{
    return std::clamp(std::fmod(t, period) / period, 0.0, 1.0);
}

std::optional<QPointF> pointOnRect(const QRectF& rect, double distance)
{
    const double length = perimeter(rect);
    if (!(length > 0)) return std::nullopt;
    double d = std::fmod(distance, length);
    if (d < 0) d += length;
    const double w = rect.width();
    const double h = rect.height();
    if (d <= w) return QPointF(rect.left() + d, rect.top());
    const double e = d - w;
    if (e <= h) return QPointF(rect.right(), rect.top() + e);
    const double f = e - h;
    if (f <= w) return QPointF(rect.right() - f, rect.bottom());
    return QPointF(rect.left(), rect.bottom() - (f - w));
}

QRectF frameRect(const QRectF& watched)
{
    return integral(watched).adjusted(-gap, -gap, gap, gap);
}

bool isFramable(const QRectF& watched)
{
    const QRectF r = integral(watched);
    return r.width() > 4 && r.height() > 4;
}

QRegion paintedRegion(const QRectF& watched, int reach)
{
    // Asked for at every picture, for the same frame.
    thread_local std::tuple<QRectF, int, QRegion> last;
    if (std::get<0>(last) == watched && std::get<1>(last) == reach && !std::get<2>(last).isEmpty())
        return std::get<2>(last);
    const QRect inner = integral(watched).toRect();
    const QRect outer = frameRect(watched).toRect().adjusted(-reach, -reach, reach, reach);
    const QRectF frame = frameRect(watched);
    const QRect pills = integral(livePill(frame).rect.united(armedPill(frame).rect)).toRect().adjusted(-1, -1, 1, 1);
    last = { watched, reach, (QRegion(outer) - QRegion(inner)) + (QRegion(pills) - QRegion(inner)) };
    return std::get<2>(last);
}

bool stillChanges(AreaOverlayStyle style, double from, double to)
{
    return stillMoves(style) && stillStep(style, from).number != stillStep(style, to).number;
}

double nextStillChange(AreaOverlayStyle style, double t)
{
    if (!stillMoves(style)) return std::numeric_limits<double>::infinity();
    const StillStep step = stillStep(style, t);
    // Rounding may land a hair short of the step; a microsecond on is well inside it.
    return stillStep(style, step.next).number != step.number ? step.next : step.next + 1e-6;
}

bool hasMovingParts(AreaOverlayStyle style)
{
    return style == AreaOverlayStyle::wave || style == AreaOverlayStyle::glass || style == AreaOverlayStyle::tactical;
}

QRegion movingParts(const QRectF& watched, AreaOverlayStyle style, double t)
{
    if (!isFramable(watched)) return {};
    const QRectF r = frameRect(watched);
    QRegion parts;
    switch (style) {
    case AreaOverlayStyle::wave:
        for (const Light& light : waveLights(r, t))
            parts += lightSquare(light);
        break;
    case AreaOverlayStyle::glass:
        if (const auto shimmer = glassShimmer(r, t)) parts += lightSquare(*shimmer);
        break;
    case AreaOverlayStyle::tactical:
        parts += scanStrip(r, t).toAlignedRect();
        break;
    default:
        break;
    }
    return parts;
}

namespace {

// Sets `painter` up for the frame around `watched`, draws with it, and leaves it as it was.
template <typename Draw> void framed(QPainter& painter, const QRectF& watched, Draw&& drawIt)
{
    if (!isFramable(watched)) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setClipRegion(paintedRegion(watched), Qt::IntersectClip);
    drawIt(frameRect(watched));
    painter.restore();
}

} // namespace

void drawStill(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t)
{
    const double slow = stillStep(style, t).moment;
    framed(painter, watched, [&](const QRectF& r) {
        switch (style) {
        case AreaOverlayStyle::outline:
            outline(painter, r, slow);
            break;
        case AreaOverlayStyle::march:
            march(painter, r, slow);
            break;
        case AreaOverlayStyle::wave:
            waveLine(painter, r);
            break;
        case AreaOverlayStyle::glass:
            glass(painter, r, slow);
            break;
        case AreaOverlayStyle::bracket:
            bracket(painter, r, slow);
            break;
        case AreaOverlayStyle::tactical:
            tactical(painter, r);
            break;
        case AreaOverlayStyle::pulse:
            pulse(painter, r, slow);
            break;
        case AreaOverlayStyle::frame:
            frame(painter, r, slow);
            break;
        }
    });
}

void drawMoving(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t)
{
    if (!hasMovingParts(style)) return;
    framed(painter, watched, [&](const QRectF& r) {
        if (style == AreaOverlayStyle::wave) waveLightsDrawn(painter, r, t);
        if (style == AreaOverlayStyle::glass) glassShimmerDrawn(painter, r, t);
        if (style == AreaOverlayStyle::tactical) tacticalScan(painter, r, t);
    });
}

void draw(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t)
{
    drawStill(painter, watched, style, t);
    drawMoving(painter, watched, style, t);
}

} // namespace ArmedFrameDrawing

#include "monitor/ArmedFrameDrawing.h"

#include <QFont>
#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <numbers>

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
    double width, Qt::PenCapStyle cap = Qt::FlatCap, const QList<qreal>& dashes = {}, double dashOffset = 0)
{
    constexpr int layers = 4;
    QColor layer = shadow;
    layer.setAlphaF(shadow.alphaF() * 0.3f);
    for (int i = layers; i >= 1; --i) {
        const double w = width + blur * i / layers;
        QPen pen(layer, w, Qt::SolidLine, cap, Qt::RoundJoin);
        if (!dashes.isEmpty()) {
            QList<qreal> scaled;
            for (qreal d : dashes)
                scaled << d / w;
            pen.setDashPattern(scaled);
            pen.setDashOffset(dashOffset / w);
        }
        p.strokePath(path, pen);
    }
    if (strokeColor.alpha() > 0) strokePath(p, path, strokeColor, width, cap);
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

QPainterPath rectPath(const QRectF& r, double radius = 0)
{
    QPainterPath path;
    if (radius > 0)
        path.addRoundedRect(r, radius, radius);
    else
        path.addRect(r);
    return path;
}

// Fills what `clip` covers with a radial gradient around `centre`.
void radialInside(QPainter& p, const QPainterPath& clip, QPointF centre, double radius, const QGradientStops& stops)
{
    p.save();
    p.setClipPath(clip, Qt::IntersectClip);
    QRadialGradient gradient(centre, radius);
    gradient.setStops(stops);
    p.fillRect(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), gradient);
    p.restore();
}

QPainterPath strokeOutline(const QPainterPath& path, double width)
{
    QPainterPathStroker stroker;
    stroker.setWidth(width);
    stroker.setJoinStyle(Qt::MiterJoin);
    QPainterPath outline = stroker.createStroke(path);
    outline.setFillRule(Qt::WindingFill);
    return outline;
}

struct Pill {
    QRectF rect;
    QFont font;
    QSizeF text;
};

// A pill above the frame, its right edge on the frame's: the text, its size, and the space it takes.
Pill pill(const QRectF& r, const QString& text, int pixelSize, double kerning, double padX, double padY, double lift)
{
    Pill out;
    out.font.setPixelSize(pixelSize);
    out.font.setWeight(QFont::Black);
    out.font.setLetterSpacing(QFont::AbsoluteSpacing, kerning);
    const QFontMetricsF metrics(out.font);
    out.text = QSizeF(metrics.horizontalAdvance(text), metrics.height());
    const double height = out.text.height() + padY;
    const double width = out.text.width() + padX;
    out.rect = integral(QRectF(r.right() - width, r.top() - lift - height, width, height));
    return out;
}

Pill livePill(const QRectF& r)
{
    return pill(r, QStringLiteral("LIVE"), 11, 1.4, 36, 10, 8);
}

Pill armedPill(const QRectF& r)
{
    return pill(r, QStringLiteral("ARMED"), 10, 1.0, 30, 8, 6);
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

void outline(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 2.6);
    const QPainterPath path = rectPath(r);
    glowPass(p, path, 12 + 14 * b, cyan(0.4 + 0.35 * b), Qt::transparent, 2.5);
    strokePath(p, path, cyan(0.85), 1.5);
}

void march(QPainter& p, const QRectF& r, double t)
{
    const QPainterPath path = rectPath(r);
    strokePath(p, path, ink(0.65), 1.5);
    // The dashes move forward along the path, which runs clockwise.
    const double offset = -14 * ramp(t, 1.5);
    const double width = 2.0;
    QPen dashed(cyan(0.95), width, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin);
    dashed.setDashPattern({ 8 / width, 6 / width });
    dashed.setDashOffset(offset / width);
    p.strokePath(path, dashed);
    glowPass(p, path, 6, cyan(0.4), Qt::transparent, width, Qt::FlatCap, { 8, 6 }, offset);
}

void wave(QPainter& p, const QRectF& r, double t)
{
    const double phase = ramp(t, 3.2);
    const QPainterPath path = rectPath(r);
    strokePath(p, path, cyan(0.32), 1.5);
    const double length = perimeter(r);
    if (length <= 0) return;
    const QPainterPath band = strokeOutline(path, 4);
    struct Comet {
        double offset, alpha, radius;
    };
    for (const Comet& comet : { Comet { 0.0, 0.95, 70 }, Comet { -0.5, 0.55, 45 } }) {
        double u = comet.offset + phase;
        u -= std::trunc(u);
        if (u < 0) u += 1;
        const auto centre = pointOnRect(r, u * length);
        if (!centre) continue;
        radialInside(p, band, *centre, comet.radius,
            { { 0, white(comet.alpha) }, { 0.25, cyan(0.85 * comet.alpha) }, { 1, cyan(0) } });
    }
    const auto head = pointOnRect(r, phase * length);
    if (!head) return;
    QRadialGradient halo(*head, 12);
    halo.setColorAt(0, cyan(0.65));
    halo.setColorAt(1, cyan(0));
    p.fillRect(QRectF(head->x() - 12, head->y() - 12, 24, 24), halo);
    p.setPen(Qt::NoPen);
    p.setBrush(cyan(0.95));
    p.drawEllipse(*head, 2.5, 2.5);
}

void glass(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 2.4);
    const QPainterPath outer = rectPath(r.adjusted(-1, -1, 1, 1), 12);
    glowPass(p, outer, 18 + 12 * b, cyan(0.45 + 0.3 * b), Qt::transparent, 3);
    strokePath(p, outer, cyan(0.85), 1.5);
    strokePath(p, rectPath(r.adjusted(1.5, 1.5, -1.5, -1.5), 10.5), cyan(0.18), 1.0);
    const auto shimmer = pointOnRect(r, ramp(t, 4.5) * perimeter(r));
    if (!shimmer) return;
    radialInside(p, strokeOutline(outer, 2.5), *shimmer, 60, { { 0, white(0.55) }, { 1, white(0) } });
}

void bracket(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 2.0);
    const double arm = std::clamp(r.width() * 0.1, 18.0, 48.0) + 4 * b;
    const QPainterPath path = cornerLs(r, arm);
    glowPass(p, path, 10 + 8 * b, cyan(0.45 + 0.35 * b), cyan(0.95), 2.5, Qt::RoundCap);
    strokePath(p, path, cyan(0.95), 2.5, Qt::RoundCap);
}

void tactical(QPainter& p, const QRectF& r, double t)
{
    // A scanline runs from the top edge to the bottom one, and jumps back.
    p.save();
    p.setClipRect(r, Qt::IntersectClip);
    const double y = r.top() + r.height() * ramp(t, 3.5);
    QLinearGradient scan(QPointF(r.center().x(), y - 18), QPointF(r.center().x(), y + 18));
    scan.setColorAt(0, cyan(0));
    scan.setColorAt(0.5, cyan(0.3));
    scan.setColorAt(1, cyan(0));
    p.fillRect(QRectF(r.left(), y - 18, r.width(), 36), scan);
    p.restore();

    strokePath(p, rectPath(r), ink(0.85), 1.5);
    const QPainterPath corners = cornerLs(r, std::max(r.width() * 0.07, 22.0));
    glowPass(p, corners, 12, cyan(0.55), cyan(1.0), 2.5);
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
    strokePath(p, rectPath(r.adjusted(-grow, -grow, grow, grow), grow + 10), cyan((1 - ripple) * 0.55), 1.0);
    const QPainterPath main = rectPath(r, 10);
    glowPass(p, main, 18 + 14 * b, cyan(0.35 + 0.55 * b), Qt::transparent, 1.5 + 1.5 * b + 1.0);
    strokePath(p, main, cyan(0.55 + 0.4 * b), 1.5 + 1.5 * b);
}

void frame(QPainter& p, const QRectF& r, double t)
{
    const double b = breath(t, 2.4);
    strokePath(p, rectPath(r), ink(0.85), 2.0);

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
    const QRect inner = integral(watched).toRect();
    const QRect outer = frameRect(watched).toRect().adjusted(-reach, -reach, reach, reach);
    const QRectF frame = frameRect(watched);
    const QRect pills = integral(livePill(frame).rect.united(armedPill(frame).rect)).toRect().adjusted(-1, -1, 1, 1);
    return (QRegion(outer) - QRegion(inner)) + (QRegion(pills) - QRegion(inner));
}

void draw(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t)
{
    if (!isFramable(watched)) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setClipRegion(paintedRegion(watched), Qt::IntersectClip);
    const QRectF r = frameRect(watched);
    switch (style) {
    case AreaOverlayStyle::outline:
        outline(painter, r, t);
        break;
    case AreaOverlayStyle::march:
        march(painter, r, t);
        break;
    case AreaOverlayStyle::wave:
        wave(painter, r, t);
        break;
    case AreaOverlayStyle::glass:
        glass(painter, r, t);
        break;
    case AreaOverlayStyle::bracket:
        bracket(painter, r, t);
        break;
    case AreaOverlayStyle::tactical:
        tactical(painter, r, t);
        break;
    case AreaOverlayStyle::pulse:
        pulse(painter, r, t);
        break;
    case AreaOverlayStyle::frame:
        frame(painter, r, t);
        break;
    }
    painter.restore();
}

} // namespace ArmedFrameDrawing

#include "devices/ChromeDrawer.h"

#include "devices/CameraFrameChrome.h"
#include "devices/CameraOverlayGeometry.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>

namespace {

enum class Look { recording, live };

QImage picture(CameraFrameStyle style, CameraShape shape, const QRectF& bubble, double t, Look look = Look::recording)
{
    QImage image(400, 320, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    if (look == Look::recording)
        ChromeDrawer::draw(painter, bubble, shape, style, t);
    else
        CameraFrameChrome::draw(painter, bubble, shape, style, t);
    return image;
}

QRgb at(const QImage& image, int x, int y)
{
    return reinterpret_cast<const QRgb*>(image.constScanLine(y))[x];
}

int alphaAt(const QImage& image, int x, int y)
{
    return qAlpha(at(image, x, y));
}

// The sum of the alpha in `area`.
long coverage(const QImage& image, const QRect& area)
{
    long sum = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            sum += alphaAt(image, x, y);
    return sum;
}

// The largest difference of any channel of any pixel.
int largestDifference(const QImage& a, const QImage& b)
{
    int most = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = at(a, x, y), q = at(b, x, y);
            most = std::max({ most, std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)),
                std::abs(qBlue(p) - qBlue(q)), std::abs(qAlpha(p) - qAlpha(q)) });
        }
    return most;
}

// Where the blue channel outweighs red clearly: the cyan family of the animated styles.
bool isCyanish(QRgb p)
{
    return qAlpha(p) > 60 && qBlue(p) > qRed(p) + 40;
}

const QRectF square(140, 100, 120, 120);
const QRectF wide(100, 100, 200, 120);

} // namespace

TEST(CameraOverlayGeometry, PlacesTheOverlayByItsCentreAndTheShortSide)
{
    const QSizeF hd(1920, 1080);
    const QRectF circle = cameraOverlayRect(hd, 0.84, 0.82, 0.12, CameraShape::circle);
    EXPECT_NEAR(circle.width(), 129.6, 1e-9);
    EXPECT_NEAR(circle.height(), 129.6, 1e-9);
    EXPECT_NEAR(circle.center().x(), 1612.8, 1e-9);
    // 194.4 from the bottom, in top-left coordinates.
    EXPECT_NEAR(circle.center().y(), 1080 - 194.4, 1e-9);
    EXPECT_NEAR(cameraCornerRadius(circle.height(), CameraShape::circle), 64.8, 1e-9);

    const QRectF rect = cameraOverlayRect(hd, 0.84, 0.82, 0.12, CameraShape::rect);
    EXPECT_NEAR(rect.width(), 230.4, 1e-9);
    EXPECT_NEAR(rect.height(), 129.6, 1e-9);
    EXPECT_EQ(rect.center(), circle.center());

    // A portrait canvas: the base is still the canvas's shorter side.
    const QRectF portrait = cameraOverlayRect(QSizeF(600, 1000), 0.5, 0.5, 0.2, CameraShape::roundedRect);
    EXPECT_NEAR(portrait.width(), 120, 1e-9);
    EXPECT_NEAR(portrait.height(), 120, 1e-9);

    // At the edge half of the overlay stands outside; nothing pulls it back.
    const QRectF atEdge = cameraOverlayRect(hd, 0.0, 0.5, 0.12, CameraShape::circle);
    EXPECT_NEAR(atEdge.left(), -64.8, 1e-9);
}

// The mask the compositor and the bubble share: a circle leaves the corners of its square to the
// screen, a rounded square less, a rectangle almost nothing.
TEST(CameraOverlayGeometry, BubbleMaskCornersFollowTheShape)
{
    const auto covers = [](CameraShape shape, QPointF point) {
        return cameraBubblePath(QRectF(0, 0, 100, 100), shape).contains(point);
    };
    for (CameraShape shape : { CameraShape::circle, CameraShape::roundedRect, CameraShape::rect }) {
        EXPECT_TRUE(covers(shape, { 50, 50 }));
        EXPECT_TRUE(covers(shape, { 50, 0.5 }));
        EXPECT_TRUE(covers(shape, { 0.5, 50 }));
    }
    EXPECT_FALSE(covers(CameraShape::circle, { 10, 10 }));
    EXPECT_TRUE(covers(CameraShape::roundedRect, { 10, 10 }));
    EXPECT_FALSE(covers(CameraShape::roundedRect, { 3, 3 }));
    EXPECT_TRUE(covers(CameraShape::rect, { 3, 3 }));
    EXPECT_FALSE(covers(CameraShape::rect, { 0.3, 0.3 }));
    // On a wide rectangle the circle is an ellipse touching all four sides.
    const QPainterPath ellipse = cameraBubblePath(QRectF(0, 0, 200, 100), CameraShape::circle);
    EXPECT_TRUE(ellipse.contains(QPointF(100, 1)));
    EXPECT_TRUE(ellipse.contains(QPointF(199, 50)));
    EXPECT_FALSE(ellipse.contains(QPointF(190, 10)));
}

// A static style draws its border on the bubble's edge, leaves the camera picture inside alone,
// and casts its shadow downward on the picture in both looks.
TEST(ChromeDrawer, StaticStylesDrawOnTheEdgeWithTheShadowBelow)
{
    for (Look look : { Look::recording, Look::live }) {
        const QImage soft = picture(CameraFrameStyle::soft, CameraShape::circle, square, 0, look);
        const int midX = int(square.center().x());
        EXPECT_GT(alphaAt(soft, midX, int(square.top())), 40);
        EXPECT_GT(qRed(at(soft, midX, int(square.top()))), 40) << "the border is white";
        EXPECT_EQ(alphaAt(soft, midX, int(square.center().y())), 0);
        EXPECT_EQ(alphaAt(soft, midX, int(square.top()) + 10), 0);
        EXPECT_EQ(alphaAt(soft, 5, 5), 0);
        const long below = coverage(soft, QRect(midX - 10, int(square.bottom()) + 3, 20, 12));
        const long above = coverage(soft, QRect(midX - 10, int(square.top()) - 15, 20, 12));
        EXPECT_GT(below, above * 2) << "look " << int(look);
        EXPECT_GT(below, 0);
    }

    // The polaroid's band lies wholly outside the bubble: opaque white half a band out.
    const QImage polaroid = picture(CameraFrameStyle::polaroid, CameraShape::rect, wide, 0);
    const double band = std::max(0.06 * 120, 4.0);
    const QRgb outside = at(polaroid, int(wide.center().x()), int(wide.top() - band / 2));
    EXPECT_GT(qAlpha(outside), 230);
    EXPECT_GT(qRed(outside), 230);
    EXPECT_LT(alphaAt(polaroid, int(wide.center().x()), int(wide.top()) + 2), 10);
}

// Every style is what its kind says: the four static ones are the same picture at any time, the
// eight animated ones change, and each animation comes back to the same picture after its period.
TEST(ChromeDrawer, AnimatedStylesMoveAndRepeatStaticOnesStandStill)
{
    for (CameraFrameStyle style : allCases<CameraFrameStyle>()) {
        const QImage early = picture(style, CameraShape::roundedRect, wide, 0.3);
        const QImage later = picture(style, CameraShape::roundedRect, wide, 1.15);
        const bool moves = largestDifference(early, later) > 8;
        EXPECT_EQ(moves, CameraFrameChrome::isAnimated(style)) << rawValue(style).toStdString();
    }
    // The whole picture's period: the longest common multiple of the style's rhythms.
    const std::pair<CameraFrameStyle, double> periods[] = {
        { CameraFrameStyle::outline, 2.6 },
        { CameraFrameStyle::march, 1.5 },
        { CameraFrameStyle::glass, 2.4 },
        { CameraFrameStyle::bracket, 2.0 },
        { CameraFrameStyle::tactical, 14.0 },
        { CameraFrameStyle::pulse, 8.0 },
        { CameraFrameStyle::wave, 3.2 },
        { CameraFrameStyle::frame, 7.2 },
    };
    for (const auto& [style, period] : periods) {
        const QImage once = picture(style, CameraShape::circle, square, 0.7);
        const QImage again = picture(style, CameraShape::circle, square, 0.7 + period);
        EXPECT_LE(largestDifference(once, again), 2) << rawValue(style).toStdString();
    }
}

// Brackets and the angular frame belong on the rectangle's corners even around a round bubble,
// where a style that follows the outline leaves those corners empty.
TEST(ChromeDrawer, FrameAndBracketStaySquareOnACircle)
{
    // On the square's edges, a few pixels from its corners: far outside the circle.
    const QPoint corner = square.topLeft().toPoint() + QPoint(6, 0);
    const QPoint farCorner = QPoint(int(square.right()) - 1, int(square.bottom()) - 6);
    for (CameraFrameStyle style : { CameraFrameStyle::bracket, CameraFrameStyle::frame }) {
        for (Look look : { Look::recording, Look::live }) {
            const QImage image = picture(style, CameraShape::circle, square, 0.5, look);
            EXPECT_TRUE(isCyanish(at(image, corner.x(), corner.y()))) << rawValue(style).toStdString();
            EXPECT_TRUE(isCyanish(at(image, farCorner.x(), farCorner.y()))) << rawValue(style).toStdString();
        }
    }
    const QImage outline = picture(CameraFrameStyle::outline, CameraShape::circle, square, 0.5);
    EXPECT_FALSE(isCyanish(at(outline, corner.x(), corner.y())));
}

// One formula in two coordinate systems: the comet of `wave` starts along the visual bottom edge in
// a recording and along the top edge in the live bubble, while the LIVE pill of `frame` sits at the
// top right in both.
TEST(ChromeDrawer, RecordingRunsWithYUpward)
{
    // A tenth of the way round, 64 pixels from the left corner.
    const double t = 0.32;
    const int x = int(wide.left() + 64);
    const QImage recorded = picture(CameraFrameStyle::wave, CameraShape::rect, wide, t, Look::recording);
    const QImage live = picture(CameraFrameStyle::wave, CameraShape::rect, wide, t, Look::live);
    const auto brightness = [](const QImage& image, int px, int py) {
        const QRgb p = at(image, px, py);
        return qRed(p) + qGreen(p) + qBlue(p);
    };
    EXPECT_GT(brightness(recorded, x, int(wide.bottom())), brightness(recorded, x, int(wide.top())) + 200);
    EXPECT_GT(brightness(live, x, int(wide.top())), brightness(live, x, int(wide.bottom())) + 200);

    for (Look look : { Look::recording, Look::live }) {
        const QImage framed = picture(CameraFrameStyle::frame, CameraShape::rect, wide, 0, look);
        const QRect topRight(int(wide.right()) - 50, int(wide.top()) + 9, 36, 16);
        const QRect bottomRight = topRight.translated(0, int(wide.height()) - 42);
        EXPECT_GT(coverage(framed, topRight), 4 * coverage(framed, bottomRight)) << "look " << int(look);
    }
}

TEST(ChromeDrawer, DrawsNothingWithoutAreaAndLeavesThePainterAsItWas)
{
    QImage image(100, 100, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.translate(3, 4);
    const QTransform before = painter.worldTransform();
    ChromeDrawer::draw(painter, QRectF(10, 10, 0, 50), CameraShape::rect, CameraFrameStyle::frame, 1);
    EXPECT_EQ(coverage(image, image.rect()), 0);
    ChromeDrawer::draw(painter, QRectF(10, 10, 60, 50), CameraShape::rect, CameraFrameStyle::frame, 1);
    EXPECT_GT(coverage(image, image.rect()), 0);
    EXPECT_EQ(painter.worldTransform(), before);
}

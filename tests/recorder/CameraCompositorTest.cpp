#include "recorder/CameraCompositor.h"

#include "devices/ChromeDrawer.h"

#include <QPainter>

#include <gtest/gtest.h>

// The overlay as the encoder receives it, checked on the picture it makes of the screen: the
// camera inside the shape, the screen everywhere else, the picture never stretched.
namespace {

const QRgb screenColour = qRgb(40, 40, 40);

QImage solid(int w, int h, QRgb colour)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

CameraComposite overlay(CameraShape shape, double x, double y, double size, QImage camera)
{
    CameraComposite c;
    c.image = std::move(camera);
    c.positionX = x;
    c.positionY = y;
    c.sizeFrac = size;
    c.shape = shape;
    return c;
}

bool near(QRgb a, QRgb b, int tolerance = 8)
{
    return std::abs(qRed(a) - qRed(b)) <= tolerance && std::abs(qGreen(a) - qGreen(b)) <= tolerance
        && std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

QImage burnt(const QImage& screen, const CameraComposite& c)
{
    const auto drawn = CameraCompositor::composite(screen, c, MediaTime::zero());
    return drawn ? CameraCompositor::burnIn(screen, *drawn) : QImage();
}

} // namespace

TEST(CameraCompositor, ACircleShowsTheCameraInsideAndTheScreenInItsSquaresCornersAndEverywhereElse)
{
    const QImage screen = solid(1920, 1080, screenColour);
    const QRgb red = qRgb(230, 20, 20);
    const CameraComposite c = overlay(CameraShape::circle, 0.84, 0.82, 0.12, solid(640, 480, red));

    // 0.12 of 1080 is a 129.6-pixel circle centred 1612.8 from the left and 885.6 from the top.
    const QRectF rect = CameraCompositor::overlayRect(QSizeF(1920, 1080), c);
    EXPECT_NEAR(rect.width(), 129.6, 1e-9);
    EXPECT_NEAR(rect.center().x(), 1612.8, 1e-9);
    EXPECT_NEAR(rect.center().y(), 885.6, 1e-9);

    const QImage out = burnt(screen, c);
    ASSERT_FALSE(out.isNull());
    EXPECT_TRUE(near(out.pixel(1612, 885), red));
    // Just inside the circle on each axis, and just outside its edge along a diagonal.
    EXPECT_TRUE(near(out.pixel(1612 - 60, 885), red));
    EXPECT_TRUE(near(out.pixel(1612, 885 + 60), red));
    const QPointF topLeft = rect.topLeft();
    for (QPointF corner : { topLeft + QPointF(3, 3), QPointF(rect.right() - 3, rect.top() + 3),
             QPointF(rect.left() + 3, rect.bottom() - 3), QPointF(rect.right() - 3, rect.bottom() - 3) })
        EXPECT_EQ(out.pixel(corner.toPoint()), screenColour) << corner.x() << "," << corner.y();
    // Nothing outside the overlay's surroundings changed, and what the encoder is handed is small.
    const auto drawn = CameraCompositor::composite(screen, c, MediaTime::zero());
    ASSERT_TRUE(drawn);
    EXPECT_LT(drawn->image.width() * drawn->image.height(), 200 * 200);
    EXPECT_EQ(drawn->at.x() % 2, 0);
    EXPECT_EQ(drawn->at.y() % 2, 0);
    EXPECT_EQ(drawn->image.width() % 2, 0);
    EXPECT_EQ(drawn->image.height() % 2, 0);
    EXPECT_EQ(out.copy(0, 0, 1500, 1080), screen.copy(0, 0, 1500, 1080));
}

TEST(CameraCompositor, AWideCameraIsCutAtTheSidesAndARectangleIsSixteenByNine)
{
    const QImage screen = solid(1280, 720, screenColour);
    // Three stripes: only the middle one may show in a square bubble, undistorted.
    QImage camera = solid(400, 100, qRgb(220, 0, 0));
    for (int y = 0; y < 100; ++y)
        for (int x = 150; x < 250; ++x)
            camera.setPixel(x, y, qRgb(0, 200, 0));
    for (int y = 0; y < 100; ++y)
        for (int x = 250; x < 400; ++x)
            camera.setPixel(x, y, qRgb(0, 0, 220));

    const CameraComposite square = overlay(CameraShape::roundedRect, 0.5, 0.5, 0.3, camera);
    const QImage out = burnt(screen, square);
    const QRectF rect = CameraCompositor::overlayRect(QSizeF(1280, 720), square);
    for (double fx : { 0.1, 0.5, 0.9 })
        EXPECT_TRUE(
            near(out.pixel(QPointF(rect.left() + fx * rect.width(), rect.center().y()).toPoint()), qRgb(0, 200, 0), 30))
            << fx;
    // The rounded corner shows the screen; the middle of each edge shows the camera.
    EXPECT_EQ(out.pixel((rect.topLeft() + QPointF(2, 2)).toPoint()), screenColour);
    EXPECT_TRUE(near(out.pixel(QPointF(rect.center().x(), rect.top() + 2).toPoint()), qRgb(0, 200, 0), 30));

    // A rectangle: 16:9, its shorter side the base size, its corners nearly square.
    const CameraComposite wide = overlay(CameraShape::rect, 0.5, 0.5, 0.3, solid(640, 480, qRgb(0, 0, 220)));
    const QRectF wideRect = CameraCompositor::overlayRect(QSizeF(1280, 720), wide);
    EXPECT_NEAR(wideRect.height(), 216, 1e-9);
    EXPECT_NEAR(wideRect.width(), 384, 1e-9);
    const QImage wideOut = burnt(screen, wide);
    EXPECT_TRUE(near(wideOut.pixel((wideRect.topLeft() + QPointF(6, 6)).toPoint()), qRgb(0, 0, 220)));
    EXPECT_EQ(wideOut.pixel((wideRect.topLeft() - QPointF(3, 3)).toPoint()), screenColour);
}

TEST(CameraCompositor, AnOverlayAtTheEdgeIsCutByTheFrameAndNothingToDrawLeavesTheFrameAlone)
{
    const QImage screen = solid(640, 360, screenColour);
    const QRgb red = qRgb(230, 20, 20);
    // Half of it lies outside the picture: the other half is drawn, with no error.
    const CameraComposite atEdge = overlay(CameraShape::circle, 0, 0.5, 0.3, solid(64, 48, red));
    const auto drawn = CameraCompositor::composite(screen, atEdge, MediaTime::zero());
    ASSERT_TRUE(drawn);
    EXPECT_EQ(drawn->at.x(), 0);
    EXPECT_TRUE(QRect(QPoint(0, 0), screen.size()).contains(QRect(drawn->at, drawn->image.size())));
    EXPECT_TRUE(near(CameraCompositor::burnIn(screen, *drawn).pixel(5, 180), red));

    // Wholly outside, of no size, or without a camera picture: nothing, and the frame goes as it came.
    EXPECT_FALSE(CameraCompositor::composite(screen, overlay(CameraShape::circle, 3, 3, 0.2, solid(8, 8, red)), {}));
    EXPECT_FALSE(CameraCompositor::composite(screen, overlay(CameraShape::circle, 0.5, 0.5, 0, solid(8, 8, red)), {}));
    EXPECT_FALSE(CameraCompositor::composite(screen, overlay(CameraShape::circle, 0.5, 0.5, 0.2, QImage()), {}));
    EXPECT_FALSE(CameraCompositor::composite(
        screen, overlay(CameraShape::circle, std::nan(""), 0.5, 0.2, solid(8, 8, red)), {}));
}

TEST(CameraCompositor, EveryFrameStyleStaysInsideThePartOfThePictureTheOverlayIsGiven)
{
    // The chrome's shadows, glows and rings reach outside the bubble; what they paint beyond the
    // overlay's surroundings would be lost, so the surroundings must hold all of it.
    const QSize canvas(640, 360);
    for (CameraShape shape : { CameraShape::circle, CameraShape::rect }) {
        for (const auto& style : EnumTable<CameraFrameStyle>::cases) {
            CameraComposite c = overlay(shape, 0.5, 0.5, 0.25, solid(8, 8, qRgb(0, 0, 0)));
            c.frameStyle = style.value;
            const QRect touched = CameraCompositor::touchedRect(canvas, c);
            const QRectF rect = CameraCompositor::overlayRect(QSizeF(canvas), c);
            for (int tick = 0; tick < 40; ++tick) {
                const double t = tick * 0.1;
                QImage drawn(canvas, QImage::Format_ARGB32_Premultiplied);
                drawn.fill(Qt::transparent);
                QPainter painter(&drawn);
                painter.setRenderHint(QPainter::Antialiasing);
                ChromeDrawer::draw(painter, rect, shape, style.value, t);
                painter.end();
                QRect painted;
                for (int y = 0; y < drawn.height(); ++y) {
                    const auto* line = reinterpret_cast<const QRgb*>(drawn.constScanLine(y));
                    for (int x = 0; x < drawn.width(); ++x)
                        if (qAlpha(line[x]) > 2) painted |= QRect(x, y, 1, 1);
                }
                EXPECT_FALSE(painted.isEmpty()) << style.raw << " at " << t;
                EXPECT_TRUE(touched.contains(painted))
                    << style.raw << " at " << t << ": painted " << painted.x() << "," << painted.y() << " "
                    << painted.width() << "x" << painted.height() << " outside " << touched.x() << "," << touched.y()
                    << " " << touched.width() << "x" << touched.height();
            }
        }
    }
}

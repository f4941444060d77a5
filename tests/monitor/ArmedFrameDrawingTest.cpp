#include "monitor/ArmedFrameDrawing.h"

#include "monitor/ArmedFramePicture.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace ArmedFrameDrawing;

namespace {

const QRectF watched(120, 90, 300, 160);

QImage picture(AreaOverlayStyle style, double t, const QRectF& area = watched)
{
    QImage image(560, 360, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    draw(painter, area, style, t);
    return image;
}

// Premultiplied, as drawn: a faint pixel counts for little in every channel.
QRgb at(const QImage& image, int x, int y)
{
    return reinterpret_cast<const QRgb*>(image.constScanLine(y))[x];
}

int alphaAt(const QImage& image, int x, int y)
{
    return qAlpha(at(image, x, y));
}

// How much of the frame lies in `rect`: the sum of the alpha of its pixels.
long coverage(const QImage& image, const QRect& rect)
{
    long sum = 0;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            sum += alphaAt(image, x, y);
    return sum;
}

const AreaOverlayStyle allStyles[]
    = { AreaOverlayStyle::outline, AreaOverlayStyle::march, AreaOverlayStyle::wave, AreaOverlayStyle::glass,
          AreaOverlayStyle::bracket, AreaOverlayStyle::tactical, AreaOverlayStyle::pulse, AreaOverlayStyle::frame };

} // namespace

// The monitor grabs the screen with our windows on it: a frame pixel inside the area would make it
// record its own frame. Nor may anything land outside the region the overlay windows are cut to.
TEST(ArmedFrameDrawing, EveryStyleStaysOutsideTheAreaAndInsideItsBand)
{
    const QRectF fractional(120.4, 90.6, 299.3, 159.2);
    const QRect inside = QRectF(120, 90, 300, 160).toRect();
    const QRegion band = paintedRegion(fractional);
    for (AreaOverlayStyle style : allStyles) {
        for (double t : { 0.0, 0.45, 1.3, 2.2, 3.7 }) {
            const QImage image = picture(style, t, fractional);
            long drawn = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    const int a = alphaAt(image, x, y);
                    drawn += a;
                    if (a == 0) continue;
                    ASSERT_FALSE(inside.contains(x, y))
                        << rawValue(style).toStdString() << " t=" << t << " at " << x << "," << y;
                    ASSERT_TRUE(band.contains(QPoint(x, y)))
                        << rawValue(style).toStdString() << " t=" << t << " at " << x << "," << y;
                }
            }
            EXPECT_GT(drawn, 255L * 500) << rawValue(style).toStdString() << " draws almost nothing at t=" << t;
        }
    }
    // A sliver gets no frame.
    EXPECT_EQ(coverage(picture(AreaOverlayStyle::outline, 0, QRectF(100, 100, 4, 100)), QRect(0, 0, 560, 360)), 0);
    EXPECT_GT(coverage(picture(AreaOverlayStyle::outline, 0, QRectF(100, 100, 5, 100)), QRect(0, 0, 560, 360)), 0);
}

TEST(ArmedFrameDrawing, StylesMoveWithTimeAndRepeatEachPeriod)
{
    const QRectF frame = frameRect(watched);
    // The outline's glow breathes: dim at 0, brightest half a period on, dim again a period on.
    const QRect glowZone(int(frame.left()) + 40, int(frame.top()) - 12, 200, 8);
    const long glowStart = coverage(picture(AreaOverlayStyle::outline, 0.0), glowZone);
    const long glowPeak = coverage(picture(AreaOverlayStyle::outline, 1.3), glowZone);
    EXPECT_GT(glowPeak, glowStart * 3 / 2);
    EXPECT_EQ(picture(AreaOverlayStyle::outline, 2.6), picture(AreaOverlayStyle::outline, 0.0));

    // The marching ants run clockwise: along the top edge, to the right, 14 pixels a period.
    const auto topRow = [&](double t) {
        const QImage image = picture(AreaOverlayStyle::march, t);
        std::vector<int> row;
        for (int x = int(frame.left()) + 20; x < int(frame.right()) - 20; ++x)
            row.push_back(qBlue(at(image, x, int(frame.top()))));
        return row;
    };
    const std::vector<int> before = topRow(0.0);
    const std::vector<int> after = topRow(1.5 * 4 / 14);
    int bestShift = 0;
    long bestError = -1;
    for (int shift = -6; shift <= 6; ++shift) {
        long error = 0;
        for (size_t i = 20; i + 20 < before.size(); ++i)
            error += std::abs(before[i] - after[i + shift]);
        if (bestError < 0 || error < bestError) {
            bestError = error;
            bestShift = shift;
        }
    }
    EXPECT_EQ(bestShift, 4);

    // The wave's comet starts at the top-left corner and is at the opposite corner half a period on.
    const auto brightest = [&](double t) {
        const QImage image = picture(AreaOverlayStyle::wave, t);
        QPoint best;
        int bestValue = -1;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (const QRgb p = at(image, x, y); qRed(p) + qGreen(p) > bestValue) {
                    bestValue = qRed(p) + qGreen(p);
                    best = QPoint(x, y);
                }
        return best;
    };
    EXPECT_LE((brightest(0.0) - frame.topLeft().toPoint()).manhattanLength(), 8);
    EXPECT_LE((brightest(1.6) - frame.bottomRight().toPoint()).manhattanLength(), 8);
}

// What stands still is drawn again exactly when it changes, never more than twenty times a second.
// A glow that only breathes is drawn again less often than that, in small steps: each a small part
// of the way between its dimmest and its brightest.
TEST(ArmedFrameDrawing, WhatStandsStillIsDrawnAgainInSmallStepsAndOnlyWhenItChanges)
{
    const auto still = [](AreaOverlayStyle style, double t) {
        QImage image(560, 360, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        drawStill(painter, watched, style, t);
        return image;
    };
    const auto change = [](const QImage& a, const QImage& b) {
        long sum = 0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) {
                const QRgb p = at(a, x, y), q = at(b, x, y);
                sum += std::abs(qAlpha(p) - qAlpha(q)) + std::abs(qBlue(p) - qBlue(q));
            }
        return sum;
    };
    constexpr double from = 0.37, seconds = 5;
    for (AreaOverlayStyle style : allStyles) {
        const bool onlyBreathes = style == AreaOverlayStyle::outline || style == AreaOverlayStyle::glass
            || style == AreaOverlayStyle::bracket;
        long swing = 0;
        for (double u = 0; onlyBreathes && u < 2.6; u += 0.05)
            swing = std::max(swing, change(still(style, 0), still(style, u)));
        int steps = 0;
        QImage shown = still(style, from);
        for (double t = from; t < from + seconds;) {
            const double next = nextStillChange(style, t);
            if (!std::isfinite(next)) {
                EXPECT_FALSE(stillChanges(style, 0, 100)) << rawValue(style).toStdString();
                break;
            }
            ASSERT_GT(next, t);
            ASSERT_FALSE(stillChanges(style, t, next - 1e-5)) << rawValue(style).toStdString() << " t=" << t;
            ASSERT_TRUE(stillChanges(style, t, next)) << rawValue(style).toStdString() << " t=" << t;
            ++steps;
            t = next;
            if (!onlyBreathes) continue;
            QImage now = still(style, t);
            EXPECT_LE(change(shown, now), swing / 10) << rawValue(style).toStdString() << " t=" << t;
            shown = std::move(now);
        }
        EXPECT_LE(steps, seconds * slowSteps + 1) << rawValue(style).toStdString();
        if (onlyBreathes) {
            EXPECT_LT(steps, seconds * slowSteps * 0.85) << rawValue(style).toStdString();
        }
    }
}

TEST(ArmedFrameDrawing, PointsWalkTheBorderClockwiseFromTheTopLeft)
{
    const QRectF r(10, 20, 100, 50);
    EXPECT_EQ(pointOnRect(r, 0), QPointF(10, 20));
    EXPECT_EQ(pointOnRect(r, 130), QPointF(110, 50));
    EXPECT_EQ(pointOnRect(r, 170), QPointF(90, 70));
    EXPECT_EQ(pointOnRect(r, 290), QPointF(10, 30));
    EXPECT_EQ(pointOnRect(r, -10), QPointF(10, 30)) << "a negative distance counts back from the start";
    EXPECT_EQ(pointOnRect(r, 300 + 130), QPointF(110, 50));
    EXPECT_FALSE(pointOnRect(QRectF(5, 5, 0, 0), 3));
}

// The overlay repaints only where the picture changes. Brought along a run of moments, some a
// refresh apart and some after skipped pictures, the picture must be the one drawn whole at each
// moment, over what lies beneath or over nothing; and a refresh that moves only lights must repaint
// well under the band (the area here is small: the lights cover much of its frame).
TEST(ArmedFramePicture, RepaintingOnlyWhatChangedGivesTheWholePicture)
{
    const QSize size(560, 360);
    QImage under(size, QImage::Format_ARGB32_Premultiplied);
    std::mt19937 noise(7);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            reinterpret_cast<QRgb*>(under.scanLine(y))[x] = qRgb(int(noise() % 256), int(noise() % 256), 90);
    const double moments[]
        = { 0, 1 / 60.0, 2 / 60.0, 0.05, 0.0501, 0.3, 0.31, 1.6, 1.6 + 1 / 60.0, 3.3, 3.3 + 1 / 60.0 };
    const long bandArea = [&] {
        long area = 0;
        for (const QRect& r : paintedRegion(watched))
            area += long(r.width()) * r.height();
        return area;
    }();

    for (const QImage& beneath : { under, QImage() }) {
        for (AreaOverlayStyle style : allStyles) {
            ArmedFramePicture shown(size, watched, style, beneath);
            for (double t : moments) {
                const QRegion changes = shown.changesAt(t);
                shown.paint(t, changes);
                QImage whole = beneath.isNull() ? picture(style, t) : beneath.copy();
                if (!beneath.isNull()) {
                    QPainter painter(&whole);
                    draw(painter, watched, style, t);
                }
                for (const QRect& rect : shown.band())
                    for (int y = rect.top(); y <= rect.bottom(); ++y)
                        for (int x = rect.left(); x <= rect.right(); ++x)
                            ASSERT_EQ(at(shown.image(), x, y), at(whole, x, y))
                                << rawValue(style).toStdString() << " t=" << t << " at " << x << "," << y
                                << (beneath.isNull() ? " over nothing" : " over a picture");
            }
            // Half a refresh on, within a step of what stands still.
            const double last = 3.3 + 1 / 60.0;
            const QRegion next = shown.changesAt(std::min(last + 1.5 / 60, (last + nextStillChange(style, last)) / 2));
            long area = 0;
            for (const QRect& r : next)
                area += long(r.width()) * r.height();
            if (hasMovingParts(style))
                EXPECT_LT(area, bandArea / 2) << rawValue(style).toStdString();
            else
                EXPECT_EQ(area, 0) << rawValue(style).toStdString();
        }
    }
}

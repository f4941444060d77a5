#pragma once

#include "core/SettingsEnums.h"

#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QRegion>

#include <optional>

class QPainter;

// The frame that marks the armed monitor's area, in eight styles, each a pure function of the time
// since the frame appeared: no state is kept between pictures. Shared by the overlay windows and the
// settings' preview.
//
// The monitor grabs the screen itself, our windows included, so nothing of the frame may land
// inside the watched rectangle or the monitor would see its own frame move: every style is drawn
// around a rectangle a little larger than the watched one, and clipped to what lies outside it.
// Coordinates are y-down, in whatever space `watched` is given in.
namespace ArmedFrameDrawing {

// Between the watched rectangle and the frame's line: room for the marks that styles set just
// inside their line (ticks, accents, the scanline).
constexpr int gap = 12;
// How far beyond the frame's line a glow reaches.
constexpr int glowReach = 16;

// Smooth 0 -> 1 -> 0 once every `period` seconds, 0 at t = 0.
double breath(double t, double period);
// 0 -> 1 over every `period` seconds, then back to 0 at once.
double ramp(double t, double period);
// The point `distance` along the border of `rect`, walking clockwise from the top-left corner;
// none for a rectangle without a border.
std::optional<QPointF> pointOnRect(const QRectF& rect, double distance);

// The rectangle the styles are drawn around: the watched one, whole pixels, grown by `gap`.
QRectF frameRect(const QRectF& watched);
// Every pixel a style may touch: a band around the frame `reach` wide (the frame's line and its
// glow), and the pill above it, without the watched rectangle. What an overlay window is shaped to.
QRegion paintedRegion(const QRectF& watched, int reach = glowReach);
// Whether a rectangle is large enough to carry a frame (the frame is not shown around a sliver).
bool isFramable(const QRectF& watched);

// A style's picture is what stands still, drawn first, and the lights that run along the frame on
// top. What stands still may breathe, crawl or ripple across the whole band: it is drawn again in
// steps, not at every picture. Where it only breathes, at each of this many levels the breath
// passes between 0 and 1 (so most often where the breath moves fastest and seldom where it turns);
// where it crawls or ripples, this many times a second. The lights move at every picture, and cover
// small squares.
constexpr int breathLevels = 16;
constexpr double slowSteps = 20;

// Whether what stands still in `style` differs between `from` and `to` seconds.
bool stillChanges(AreaOverlayStyle style, double from, double to);
// When what stands still next changes after `t`; never (infinity) for a style where it doesn't.
double nextStillChange(AreaOverlayStyle style, double t);
// Whether `style` has lights that move at every picture.
bool hasMovingParts(AreaOverlayStyle style);
// What the moving lights of `style` cover at `t`.
QRegion movingParts(const QRectF& watched, AreaOverlayStyle style, double t);

// Draws what stands still in `style` at `t`, then the moving lights; `draw` does both. The
// same contract as `draw`.
void drawStill(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t);
void drawMoving(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t);

// Draws `style` at `t` seconds around `watched` on `painter`, antialiased, without touching the
// watched rectangle. Nothing for a rectangle that isn't framable. Leaves the painter as it was.
void draw(QPainter& painter, const QRectF& watched, AreaOverlayStyle style, double t);

} // namespace ArmedFrameDrawing

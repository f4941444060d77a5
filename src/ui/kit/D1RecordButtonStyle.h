#pragma once

#include "ui/kit/Appearance.h"
#include "ui/kit/D1.h"

#include <QRectF>
#include <QString>

class QPainter;

struct D1RecordButtonState {
    bool live = false; // a recording runs
    qreal diameter = 84;
    double pulse = 0; // 0..1, where the glow's breathing stands
    QString text; // under the glyph, inside the circle; may be empty
    Appearance appearance = Appearance::dark;
    bool enabled = true;
    bool pressed = false;
    bool hovered = false;
    bool focused = false;
};

// The big round record button: a gradient circle in a breathing glow, blue while idle and red while
// live, with a record dot (idle) or a stop square (live) above its text.
class D1RecordButtonStyle {
public:
    static TileColors idleGradient();
    static TileColors liveGradient();
    // The glow's opacity at rest and at the top of a breath.
    static constexpr double idleGlow[2] = { 0.15, 0.55 };
    static constexpr double liveGlow[2] = { 0.25, 0.65 };

    // Room around the circle for the glow and the focus ring, on each side.
    static qreal margin(qreal diameter);
    // The circle is centred in `r`.
    static void paint(QPainter& p, const QRectF& r, const D1RecordButtonState& state);
};

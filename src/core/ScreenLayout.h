#pragma once

#include <QPointF>
#include <QRectF>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// The screens of the desktop in a stable order, the first being the main one.
//
// Two coordinate spaces exist and must not be mixed: global display space (origin at the top left of
// the main screen, y down, points), in which `frame` is given, and the bottom-left screen space that
// some calculations inherit. Only the main screen's height is used to flip between them. On X11 both
// spaces coincide in practice, but the flips are kept and tested so a bottom-left layout stays right.
struct ScreenLayout {
    struct Screen {
        uint32_t displayID = 0;
        QRectF frame; // global display space, points
        double scale = 1.0; // pixels per point
        QString name; // the user-facing name ("DP-1", or the monitor's model)

        // The frame in pixels, as the platform's convert-to-backing would give it.
        QRectF backingRect(const QRectF& rect) const
        {
            return QRectF(rect.x() * scale, rect.y() * scale, rect.width() * scale, rect.height() * scale);
        }
    };

    std::vector<Screen> screens;

    const Screen* mainScreen() const { return screens.empty() ? nullptr : &screens.front(); }
    // The first screen whose display identifier is `id`.
    const Screen* screenForDisplay(uint32_t id) const;
    // The first screen whose frame contains `point`.
    const Screen* screenContaining(const QPointF& point) const;

    // Global display space (top left, y down) <-> bottom-left screen space, through the main height.
    QRectF globalToScreenSpace(const QRectF& rect) const;
    QRectF screenSpaceToGlobal(const QRectF& rect) const;
};

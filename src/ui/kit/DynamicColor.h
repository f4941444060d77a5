#pragma once

#include "ui/kit/Appearance.h"

#include <QColor>

class QWidget;

// A named colour with one value per appearance, resolved when it is drawn so that a change of the
// palette redraws it from the other value.
struct DynamicColor {
    QColor dark;
    QColor light;

    constexpr DynamicColor() = default;
    constexpr DynamicColor(QColor dark, QColor light)
        : dark(dark)
        , light(light)
    {
    }
    // A fixed colour is the same in both appearances, so kit controls take either kind.
    constexpr DynamicColor(QColor both) // NOLINT(google-explicit-constructor)
        : dark(both)
        , light(both)
    {
    }

    QColor resolve(Appearance appearance) const { return appearance == Appearance::dark ? dark : light; }
    // The appearance of the widget's palette (the application's when `widget` is null).
    QColor resolve(const QWidget* widget) const { return resolve(appearanceOf(widget)); }
};

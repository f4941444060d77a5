#pragma once

#include "ui/kit/Appearance.h"

#include <QColor>

class QWidget;

// A named colour with one value per appearance, resolved when it is drawn so that a change of the
// palette redraws it from the other value.
struct DynamicColor {
    QColor dark;
    QColor light;

    QColor resolve(Appearance appearance) const { return appearance == Appearance::dark ? dark : light; }
    // The appearance of the widget's palette (the application's when `widget` is null).
    QColor resolve(const QWidget* widget) const { return resolve(appearanceOf(widget)); }
};

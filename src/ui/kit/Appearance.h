#pragma once

#include <QPalette>

class QWidget;

// The dark or light look of the kit. Qt 6.4 has no colour-scheme API, so the appearance is read from
// the palette: dark when its window colour is dark.
enum class Appearance { dark, light };

Appearance appearanceOf(const QPalette& palette);
// The widget's own palette; the application's palette when `widget` is null.
Appearance appearanceOf(const QWidget* widget);

// A complete Qt palette in the kit's colours for one appearance, whose window colour makes
// appearanceOf answer that appearance. Setting it on the application switches every kit control.
QPalette kitPalette(Appearance appearance);

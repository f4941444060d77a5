#pragma once

#include <QColor>
#include <QIcon>
#include <QRectF>
#include <QString>

class QPainter;

// The icons of the screens, called by their symbol names ("record.circle", "gearshape.fill"). Each
// known symbol maps to a freedesktop icon-theme name and has a line drawing of its own bundled in the
// kit, used when the desktop's theme has no single-colour (symbolic) icon of that name. A coloured
// theme icon is never used: tinted to one colour it would lose its drawing.
//
// Call from the GUI thread.
namespace Symbols {

// The freedesktop icon name for the symbol, empty when none fits.
QString themeName(const QString& symbol);
// A short English meaning, the accessible name of a control that shows only this symbol.
QString meaning(const QString& symbol);
// The theme's symbolic icon, else the bundled drawing; a null icon for an unknown symbol.
QIcon icon(const QString& symbol);
// Draws the symbol in one colour, as large as fits in `r` and centred there; nothing for an unknown
// symbol.
void paint(QPainter& p, const QRectF& r, const QString& symbol, const QColor& tint);
// Every symbol that the table knows.
QStringList known();

} // namespace Symbols

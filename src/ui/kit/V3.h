#pragma once

#include "ui/kit/DynamicColor.h"

#include <QColor>

// The neutral palette of every screen. Screens take their colours from here (and from D1), never
// from raw values of their own.
namespace V3 {

extern const DynamicColor bg;
extern const DynamicColor bgElev;
extern const DynamicColor bgInset;
extern const DynamicColor bgCard;
extern const DynamicColor line;
extern const DynamicColor lineSoft;
extern const DynamicColor fg;
extern const DynamicColor fgMute;
extern const DynamicColor fgFaint;
extern const DynamicColor fgDim;
extern const DynamicColor rec;
extern const DynamicColor match;
extern const DynamicColor alert;
extern const DynamicColor accent;

// The same in both appearances.
extern const QColor recGlow;
extern const QColor matchSoft;
extern const QColor alertSoft;
extern const QColor accentSoft;
extern const QColor accentGlow;

} // namespace V3

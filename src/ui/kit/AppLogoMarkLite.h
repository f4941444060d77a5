#pragma once

#include <QRectF>

class QPainter;

// The application's mark: a blue rounded tile holding a tape reel with a red record dot at its hub,
// and a rewind arrow round it that says "the last seconds are kept". The largest square centred in
// `r`; readable from 16 pixels up.
class AppLogoMarkLite {
public:
    static void paint(QPainter& p, const QRectF& r);
};

#include "ui/D1Screen.h"

NavRowContent navRowContent(D1Screen screen)
{
    switch (screen) {
    case D1Screen::recorder:
        return { QStringLiteral("Recorder"), QStringLiteral("record.circle"), D1::tileRec };
    case D1Screen::clips:
        return { QStringLiteral("Clips"), QStringLiteral("film.stack"), D1::tilePurple };
    case D1Screen::journal:
        return { QStringLiteral("Journal"), QStringLiteral("chart.line.uptrend.xyaxis"), D1::tileBlue };
    case D1Screen::settings:
        return { QStringLiteral("Settings"), QStringLiteral("gearshape.fill"), D1::tileGray };
    case D1Screen::about:
        return { QStringLiteral("About"), QStringLiteral("info.circle"), D1::tileTeal };
    }
    return {};
}

#pragma once

#include "ui/kit/V3.h"

// The hero card is dark in both appearances (D1 heroCardFill), so text on it takes the dark values
// of the V3 colours. Kit texts keep a reference to their colour: these live for the program.
namespace CardColours {

inline const DynamicColor& text()
{
    static const DynamicColor colour(V3::fg.dark);
    return colour;
}

inline const DynamicColor& mutedText()
{
    static const DynamicColor colour(V3::fgMute.dark);
    return colour;
}

} // namespace CardColours

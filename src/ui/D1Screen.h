#pragma once

#include "ui/kit/D1.h"

#include <QString>

#include <array>

// The window's destinations, in the sidebar's order. The selected one is not remembered between
// launches: every launch opens on the recorder.
enum class D1Screen { recorder, clips, journal, settings, about };

inline constexpr std::array<D1Screen, 5> allScreens
    = { D1Screen::recorder, D1Screen::clips, D1Screen::journal, D1Screen::settings, D1Screen::about };

// What a sidebar row shows for a destination.
struct NavRowContent {
    QString label;
    QString symbol;
    TileColors tile;
};

NavRowContent navRowContent(D1Screen screen);

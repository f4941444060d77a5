#pragma once

#include "capture/CaptureWindow.h"

#include <QStringList>

#include <vector>

// Boils the platform's raw window list down to what a person would want to pick: one window per
// application, its largest, sorted by application name. Pure logic.
namespace WindowListFilter {

// What the platform counts as its own furniture rather than an application's window. On X11 the
// desktop shell's clients are known by their WM_CLASS class; there are no title prefixes.
struct SystemRules {
    QStringList bundleIdentifiers; // compared exactly
    QStringList titlePrefixes; // compared as case-sensitive prefixes
};

// A window is dropped when its layer isn't 0, it is off screen, its frame is under 150 by 80,
// it has no title, no owner, is this program's own, or matches the system rules. Of the windows
// of one application the one with the strictly largest area wins, so of two equal the first.
// The result is sorted by application name, ignoring case, in the user's locale.
std::vector<CaptureWindow> pickable(
    const std::vector<CaptureWindow>& windows, const QString& ownBundleIdentifier, const SystemRules& rules);

} // namespace WindowListFilter

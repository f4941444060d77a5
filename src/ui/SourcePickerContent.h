#pragma once

#include "capture/CaptureSource.h"
#include "core/ScreenLayout.h"

#include <QString>

#include <optional>
#include <vector>

// What the source picker lists and how it names things: the two tabs, the names of displays and
// windows, the button's label and the filter. Plain functions of the engine's lists.
namespace SourcePickerContent {

enum class Tab { displays, windows };
QString rawValue(Tab tab); // "displays", "windows"
std::optional<Tab> tabFromRawValue(const QString& raw);
QString title(Tab tab); // "Displays", "Windows"

// The screen's name for the display, or "Display " and its id when no screen has one.
QString displayName(const CaptureDisplay& display, const ScreenLayout& screens);
// The window's title, or "Untitled".
QString windowTitle(const CaptureWindow& window);
// The name of the window's application, empty when it has none.
QString applicationName(const CaptureWindow& window);

// "Pick a source…", a display's name, a window's application (or "Window"), or
// "Region · W×H" in pixels.
QString labelForCurrentSource(const std::optional<CaptureSource>& source, const ScreenLayout& screens);

// The listed displays and windows that match `filter` (all of them for an empty one), in the
// engine's order. A display matches by its name, a window by its application's name or its title,
// ignoring case.
std::vector<CaptureDisplay> displayItems(
    const std::vector<CaptureDisplay>& displays, const QString& filter, const ScreenLayout& screens);
std::vector<CaptureWindow> windowItems(const std::vector<CaptureWindow>& windows, const QString& filter);

} // namespace SourcePickerContent

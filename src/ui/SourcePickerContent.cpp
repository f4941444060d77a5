#include "ui/SourcePickerContent.h"

namespace SourcePickerContent {

QString rawValue(Tab tab)
{
    return tab == Tab::windows ? QStringLiteral("windows") : QStringLiteral("displays");
}

std::optional<Tab> tabFromRawValue(const QString& raw)
{
    if (raw == QLatin1String("displays")) return Tab::displays;
    if (raw == QLatin1String("windows")) return Tab::windows;
    return std::nullopt;
}

QString title(Tab tab)
{
    return tab == Tab::windows ? QStringLiteral("Windows") : QStringLiteral("Displays");
}

QString displayName(const CaptureDisplay& display, const ScreenLayout& screens)
{
    const ScreenLayout::Screen* screen = screens.screenForDisplay(display.displayID);
    if (screen && !screen->name.isEmpty()) return screen->name;
    return QStringLiteral("Display %1").arg(display.displayID);
}

QString windowTitle(const CaptureWindow& window)
{
    return window.title && !window.title->isEmpty() ? *window.title : QStringLiteral("Untitled");
}

QString applicationName(const CaptureWindow& window)
{
    return window.owningApplication ? window.owningApplication->applicationName : QString();
}

QString labelForCurrentSource(const std::optional<CaptureSource>& source, const ScreenLayout& screens)
{
    if (!source) return QStringLiteral("Pick a source…");
    switch (source->kind()) {
    case CaptureSource::Kind::display:
        return displayName(source->capturedDisplay(), screens);
    case CaptureSource::Kind::window: {
        const QString name = applicationName(source->capturedWindow());
        return name.isEmpty() ? QStringLiteral("Window") : name;
    }
    case CaptureSource::Kind::region:
        return QStringLiteral("Region · %1×%2").arg(source->pixelWidth()).arg(source->pixelHeight());
    }
    return {};
}

std::vector<CaptureDisplay> displayItems(
    const std::vector<CaptureDisplay>& displays, const QString& filter, const ScreenLayout& screens)
{
    if (filter.isEmpty()) return displays;
    std::vector<CaptureDisplay> matching;
    for (const CaptureDisplay& display : displays)
        if (displayName(display, screens).contains(filter, Qt::CaseInsensitive)) matching.push_back(display);
    return matching;
}

std::vector<CaptureWindow> windowItems(const std::vector<CaptureWindow>& windows, const QString& filter)
{
    if (filter.isEmpty()) return windows;
    std::vector<CaptureWindow> matching;
    for (const CaptureWindow& window : windows) {
        const bool byApplication = applicationName(window).contains(filter, Qt::CaseInsensitive);
        const bool byTitle = window.title && window.title->contains(filter, Qt::CaseInsensitive);
        if (byApplication || byTitle) matching.push_back(window);
    }
    return matching;
}

} // namespace SourcePickerContent

#include "app/session/AreaCommands.h"

#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"
#include "monitor/AreaMonitor.h"
#include "monitor/RegionPicking.h"

#include <QPointer>
#include <QTimer>

AreaCommands::AreaCommands(AreaMonitor& monitor, CaptureEngine& engine, const SourceMemory& sources,
    std::unique_ptr<AreaPicker> picker, std::function<void(const QString&)> showToast,
    std::function<void()> restartStream, QObject* parent)
    : QObject(parent)
    , monitor(&monitor)
    , engine(&engine)
    , sources(&sources)
    , picker(std::move(picker))
    , showToast(std::move(showToast))
    , restartStream(std::move(restartStream))
{
}

QString AreaCommands::toggleAreaMonitor()
{
    const QString text = AreaMonitorActions::toggle(*monitor);
    if (!text.isEmpty()) showToast(text);
    return text;
}

std::optional<AreaMonitorActions::WindowScope> AreaCommands::windowScope() const
{
    const auto window = engine->selectedWindowScope();
    if (!window) return std::nullopt;
    return AreaMonitorActions::WindowScope { window->windowID, window->frame };
}

void AreaCommands::setPickedAreaRect(const QRectF& rect)
{
    AreaMonitorActions::setPickedAreaRect(*monitor, rect, windowScope());
}

AreaMonitorActions::WatchResult AreaCommands::watchArea(const QRectF& rect)
{
    std::vector<QRectF> displays;
    for (const ScreenLayout::Screen& screen : sources->screenLayout().screens)
        displays.push_back(screen.frame);
    const auto result = AreaMonitorActions::watchArea(*monitor, rect, windowScope(), displays);
    showToast(result.toast);
    return result;
}

void AreaCommands::pickRecordingRegion()
{
    if (!picker) return;
    QPointer<AreaCommands> self(this);
    picker->pick([self](std::optional<QRectF> rect) {
        // Cancelled: the present source and its stream stay as they are.
        if (self && rect) self->useRecordingRegion(*rect);
    });
}

bool AreaCommands::pickWatchArea()
{
    if (!picker) return false;
    QPointer<AreaCommands> self(this);
    picker->pick([self](std::optional<QRectF> rect) {
        if (!self || !rect) return;
        // The reference is a picture of the screen: the picker's dimming must be gone from it.
        QTimer::singleShot(pickerLeavesScreen, self, [self, area = *rect] {
            if (self) self->watchArea(area);
        });
    });
    return true;
}

void AreaCommands::useRecordingRegion(const QRectF& globalRect)
{
    std::vector<uint32_t> displayIDs;
    for (const CaptureDisplay& d : engine->availableDisplays())
        displayIDs.push_back(d.displayID);
    const auto result = RegionPicking::pickedRegion(globalRect, sources->screenLayout(), displayIDs);
    if (const auto* failure = std::get_if<RegionPicking::PickFailure>(&result)) {
        showToast(RegionPicking::failureMessage(*failure));
        return;
    }
    const auto& region = std::get<RegionPicking::PickedRegion>(result);
    for (const CaptureDisplay& d : engine->availableDisplays()) {
        if (d.displayID != region.displayID) continue;
        engine->setSelectedSource(CaptureSource::region(d, region.localRect, region.pixelWidth, region.pixelHeight));
        break;
    }
    showToast(RegionPicking::selectedToast(region));
    restartStream();
}

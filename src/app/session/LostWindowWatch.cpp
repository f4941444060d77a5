#include "app/session/LostWindowWatch.h"

#include "app/session/SourceGeometry.h"
#include "app/session/SourceMemory.h"
#include "capture/CaptureEngine.h"

#include <QPointer>

#include <algorithm>

LostWindowWatch::LostWindowWatch(CaptureEngine& engine, const SourceMemory& sources, TaskScheduler& scheduler,
    std::function<void(const QString&)> showToast, std::function<void(int width, int height)> startStream,
    QObject* parent)
    : QObject(parent)
    , engine(&engine)
    , sources(&sources)
    , scheduler(&scheduler)
    , showToast(std::move(showToast))
    , startStream(std::move(startStream))
{
}

void LostWindowWatch::handleStreamStopped(const QString& reason)
{
    const std::optional<CaptureSource> source = engine->selectedSource();
    if (!source || source->kind() != CaptureSource::Kind::window) {
        showToast(QStringLiteral("Capture stopped: ") + reason);
        return;
    }
    const CaptureWindow& window = source->capturedWindow();
    const QString title = window.title.value_or(QString());
    const QString bundle = window.owningApplication ? window.owningApplication->bundleIdentifier : QString();

    // The display under the window's middle, or the first one: the trader keeps a recording of
    // whatever replaced the window rather than none.
    const std::vector<CaptureDisplay>& displays = engine->availableDisplays();
    const auto under = std::find_if(displays.begin(), displays.end(),
        [&](const CaptureDisplay& d) { return QRectF(d.frame).contains(window.frame.center()); });
    const CaptureDisplay* display = under != displays.end() ? &*under : displays.empty() ? nullptr : &displays.front();
    if (display) switchSourceKeepingRing(CaptureSource::display(*display));
    showToast(engine->isStreaming()
            ? QStringLiteral("The window “%1” was closed; recording the whole display until it reopens").arg(title)
            : QStringLiteral("The window “%1” was closed; nothing is recorded until it reopens").arg(title));

    // Found again as a saved window is: by application and title (a window without them never is).
    if (bundle.isEmpty() || title.isEmpty()) return;
    lostWindow = LostWindow { SourceGeometry::windowDescriptor(bundle, title), title };
    scheduleCheck();
}

void LostWindowWatch::switchSourceKeepingRing(const CaptureSource& source)
{
    switchingSource = true;
    engine->setSelectedSource(source);
    switchingSource = false;
    // The recorder keeps its size: a new picture is fitted into the frames the ring already holds.
    startStream(engine->outputWidth(), engine->outputHeight());
}

void LostWindowWatch::stopWaiting()
{
    lostWindow.reset();
    if (checkTask) scheduler->cancel(*checkTask);
    checkTask.reset();
}

void LostWindowWatch::scheduleCheck()
{
    if (checkTask) scheduler->cancel(*checkTask);
    QPointer<LostWindowWatch> self(this);
    checkTask = scheduler->schedule(checkInterval, [self] {
        if (self) self->check();
    });
}

void LostWindowWatch::check()
{
    checkTask.reset();
    if (!lostWindow) return;
    QPointer<LostWindowWatch> self(this);
    engine->refreshAvailableContent([self] {
        if (!self || !self->lostWindow) return; // the user chose another source meanwhile
        const std::optional<CaptureSource> window = self->sources->findSource(self->lostWindow->descriptor);
        if (!window) {
            self->scheduleCheck();
            return;
        }
        const QString title = self->lostWindow->title;
        self->stopWaiting();
        self->switchSourceKeepingRing(*window);
        // A failed start speaks through the engine's errorMessage.
        if (self->engine->isStreaming())
            self->showToast(QStringLiteral("The window “%1” is back; recording it again").arg(title));
    });
}

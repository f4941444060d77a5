#include "app/session/EventNotifications.h"

#include "app/session/RecorderViewModel.h"
#include "capture/CaptureEngine.h"
#include "core/Log.h"
#include "core/Publisher.h"
#include "platform/DesktopNotifications.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>

EventNotifications::EventNotifications(RecorderViewModel* vm, std::unique_ptr<DesktopNotifications> sink,
    std::function<bool()> seesWindow, QObject* parent)
    : QObject(parent)
    , viewModel(vm)
    , notifications(std::move(sink))
    , userSeesWindow(std::move(seesWindow))
{
    observe(viewModel, &RecorderViewModel::lastSavedURL, &RecorderViewModel::lastSavedURLChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& path) {
            if (path) clipSaved(*path);
        });
    // A failed export says so only in a toast; that toast is the event.
    observe(viewModel, &RecorderViewModel::toast, &RecorderViewModel::toastChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& text) {
            if (text && text->startsWith(QStringLiteral("Error: "))) error(*text);
        });
    observe(viewModel->engine(), &CaptureEngine::errorMessage, &CaptureEngine::errorMessageChanged)
        .dropFirst()
        .removeDuplicates()
        .sink(this, [this](const std::optional<QString>& text) {
            if (text) error(*text);
        });
}

EventNotifications::~EventNotifications() = default;

bool EventNotifications::shouldNotify() const
{
    return notifications && !(userSeesWindow && userSeesWindow());
}

void EventNotifications::clipSaved(const QString& path)
{
    if (!shouldNotify()) return;
    const QFileInfo clip(path);
    QPointer<RecorderViewModel> vm(viewModel);
    notifications->notify(QStringLiteral("Saved: ") + clip.fileName(), QDir::toNativeSeparators(clip.absolutePath()),
        { { QString::fromLatin1(openAction), QStringLiteral("Open") },
            { QString::fromLatin1(showInFolderAction), QStringLiteral("Show in Folder") } },
        [vm, path](const QString& key) {
            DesktopIntegration* desktop = vm ? vm->desktop() : nullptr;
            if (!desktop) return;
            if (key == QLatin1String(openAction)) {
                if (!desktop->open(path)) logLine(QStringLiteral("No application opens %1").arg(path));
            } else if (key == QLatin1String(showInFolderAction)) {
                desktop->revealInFileManager(path);
            }
        });
}

void EventNotifications::error(const QString& text)
{
    if (!shouldNotify()) return;
    notifications->notify(text, {}, {}, {});
}

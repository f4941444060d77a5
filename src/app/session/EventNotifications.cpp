#include "app/session/EventNotifications.h"

#include "app/session/SessionModels.h"
#include "app/session/SessionStatus.h"
#include "capture/CaptureEngine.h"
#include "core/Log.h"
#include "core/Publisher.h"
#include "platform/DesktopIntegration.h"
#include "platform/DesktopNotifications.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>

EventNotifications::EventNotifications(const SessionModels& models, std::unique_ptr<DesktopNotifications> sink,
    std::function<bool()> seesWindow, QObject* parent)
    : QObject(parent)
    , status(models.status)
    , desktop(models.desktop)
    , notifications(std::move(sink))
    , userSeesWindow(std::move(seesWindow))
{
    observe(status, &SessionStatus::lastSavedURL, &SessionStatus::lastSavedURLChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& path) {
            if (path) clipSaved(*path);
        });
    // A failed export says so only in a toast; that toast is the event.
    observe(status, &SessionStatus::toast, &SessionStatus::toastChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& text) {
            if (text && text->startsWith(QStringLiteral("Error: "))) error(*text);
        });
    observe(models.engine, &CaptureEngine::errorMessage, &CaptureEngine::errorMessageChanged)
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
    // The session, and its desktop with it, may be gone when the user answers.
    QPointer<SessionStatus> alive(status);
    notifications->notify(QStringLiteral("Saved: ") + clip.fileName(), QDir::toNativeSeparators(clip.absolutePath()),
        { { QString::fromLatin1(openAction), QStringLiteral("Open") },
            { QString::fromLatin1(showInFolderAction), QStringLiteral("Show in Folder") } },
        [alive, desktop = desktop, path](const QString& key) {
            if (!alive || !desktop) return;
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

#include "app/session/OwnWindowTracker.h"

#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <QWindow>

OwnWindowTracker::OwnWindowTracker(std::function<void(std::vector<uint32_t>)> report, QObject* parent)
    : QObject(parent)
    , report(std::move(report))
{
    qApp->installEventFilter(this);
    reported = visibleWindows();
    this->report(reported);
}

std::vector<uint32_t> OwnWindowTracker::visibleWindows()
{
    std::vector<uint32_t> ids;
    for (QWindow* window : QGuiApplication::topLevelWindows())
        // winId() would make a native window for one that has none yet: only those made are asked.
        if (window->isVisible() && window->handle()) ids.push_back(uint32_t(window->winId()));
    return ids;
}

bool OwnWindowTracker::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (watched->isWindowType() && (type == QEvent::Show || type == QEvent::Hide || type == QEvent::PlatformSurface)
        && !scheduled) {
        // Several windows change at once (a popover closing as the main window shows): one report
        // after they all did.
        scheduled = true;
        QTimer::singleShot(0, this, [this] {
            scheduled = false;
            std::vector<uint32_t> now = visibleWindows();
            if (now == reported) return;
            reported = std::move(now);
            report(reported);
        });
    }
    return false;
}

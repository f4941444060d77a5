#pragma once

#include <QString>

#include <functional>
#include <vector>

// Notifications on the desktop: a summary, a body, and buttons that call back.
//
// Main thread.
class DesktopNotifications {
public:
    struct Action {
        QString key; // what the callback hears
        QString label; // what the button says
    };

    virtual ~DesktopNotifications() = default;

    // Shows one notification. `onAction` hears the key of the button the user pressed, on the main
    // thread, at most once. Without a notification service nothing is shown and nothing is
    // reported: the notification is only ever a second channel.
    virtual void notify(const QString& summary, const QString& body, const std::vector<Action>& actions,
        std::function<void(const QString& key)> onAction)
        = 0;
};

#pragma once

#include "platform/DesktopNotifications.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>

// Notifications through org.freedesktop.Notifications on the session bus, with the application's
// desktop entry as their sender, so that the desktop shows our name and icon and groups them.
//
// Main thread. Every call is asynchronous: a slow or hung notification daemon never holds up the
// recorder.
class FreedesktopNotifications : public QObject, public DesktopNotifications {
    Q_OBJECT
public:
    // `appId`: the desktop entry's name without ".desktop"; it is also the icon's name.
    FreedesktopNotifications(QDBusConnection bus, QString appId, QObject* parent = nullptr);

    void notify(const QString& summary, const QString& body, const std::vector<Action>& actions,
        std::function<void(const QString& key)> onAction) override;

private slots:
    void actionInvoked(uint id, const QString& key);
    void notificationClosed(uint id, uint reason);

private:
    QDBusConnection bus;
    QString appId;
    // The callbacks of the notifications that are still up, by the daemon's id.
    QHash<uint, std::function<void(const QString&)>> pending;
    bool missingServiceLogged = false;
};

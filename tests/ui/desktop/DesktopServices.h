#pragma once

#include <QDBusConnection>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

#include <memory>
#include <mutex>
#include <vector>

class QObject;

// What a desktop session offers on its bus, reduced to what the tests look at, recording every
// call: a notification daemon (org.freedesktop.Notifications), a file manager
// (org.freedesktop.FileManager1) and a tray host's watcher (org.kde.StatusNotifierWatcher). They
// answer on a thread of their own, so that a call the application blocks on is still answered.
class DesktopServices {
public:
    struct Notification {
        uint id = 0;
        QString appName;
        QString appIcon;
        QString summary;
        QString body;
        QStringList actions; // key, label, key, label...
        QVariantMap hints;
    };

    // The record the services write from their thread and the test reads from its own.
    struct Calls {
        mutable std::mutex lock;
        std::vector<Notification> notifications;
        QStringList shownItems; // ShowItems' URIs, in order
        QStringList trayItems; // the services of the registered StatusNotifierItems
    };

    // `withTray` false: a session whose desktop has no tray (no watcher on the bus).
    explicit DesktopServices(const QString& busAddress, bool withTray = true);
    ~DesktopServices();

    // Empty when every service got its name on the bus.
    QString error() const { return problem; }
    QDBusConnection connection() const { return bus; }

    std::vector<Notification> notifications() const;
    QStringList shownItems() const;
    QStringList trayItems() const;

    // As a user's click on a notification's button: the action, then the notification closes.
    void invokeAction(uint id, const QString& key);
    // The notification daemon leaves the bus.
    void stopNotifications();

private:
    std::shared_ptr<Calls> calls;
    QThread thread;
    QDBusConnection bus;
    std::vector<std::unique_ptr<QObject>> services;
    QString problem;
};

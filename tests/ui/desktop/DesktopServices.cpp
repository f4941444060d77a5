#include "DesktopServices.h"

#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>

// The services' objects: their slots are the methods on the bus.
namespace {

class NotificationService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    explicit NotificationService(std::shared_ptr<DesktopServices::Calls> c)
        : calls(std::move(c))
    {
    }

public slots:
    uint Notify(const QString& appName, uint, const QString& appIcon, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap& hints, int)
    {
        const std::lock_guard guard(calls->lock);
        const uint id = uint(calls->notifications.size()) + 1;
        calls->notifications.push_back({ id, appName, appIcon, summary, body, actions, hints });
        return id;
    }
    QStringList GetCapabilities() { return { QStringLiteral("actions"), QStringLiteral("body") }; }
    void CloseNotification(uint) { }

private:
    std::shared_ptr<DesktopServices::Calls> calls;
};

class FileManagerService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    explicit FileManagerService(std::shared_ptr<DesktopServices::Calls> c)
        : calls(std::move(c))
    {
    }

public slots:
    void ShowItems(const QStringList& uris, const QString&)
    {
        const std::lock_guard guard(calls->lock);
        calls->shownItems << uris;
    }
    void ShowFolders(const QStringList&, const QString&) { }
    void ShowItemProperties(const QStringList&, const QString&) { }

private:
    std::shared_ptr<DesktopServices::Calls> calls;
};

class TrayWatcherService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registeredItems)
public:
    explicit TrayWatcherService(std::shared_ptr<DesktopServices::Calls> c)
        : calls(std::move(c))
    {
    }
    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList registeredItems() const
    {
        const std::lock_guard guard(calls->lock);
        return calls->trayItems;
    }

public slots:
    void RegisterStatusNotifierItem(const QString& service)
    {
        // An item may give its object path instead of a bus name: then the sender is the service.
        const QString name = service.startsWith(u'/') ? message().service() : service;
        {
            const std::lock_guard guard(calls->lock);
            calls->trayItems << name;
        }
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/StatusNotifierWatcher"),
            QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("StatusNotifierItemRegistered"));
        signal << name;
        connection().send(signal);
    }
    void RegisterStatusNotifierHost(const QString&) { }

signals:
    void StatusNotifierItemRegistered(const QString& service);
    void StatusNotifierHostRegistered();

private:
    std::shared_ptr<DesktopServices::Calls> calls;
};

} // namespace

DesktopServices::DesktopServices(const QString& busAddress, bool withTray)
    : calls(std::make_shared<Calls>())
    , bus(QDBusConnection::connectToBus(busAddress, QStringLiteral("velotape-test-desktop-services")))
{
    thread.start();
    if (!bus.isConnected()) {
        problem = QStringLiteral("no connection to %1: %2").arg(busAddress, bus.lastError().message());
        return;
    }
    struct Service {
        std::unique_ptr<QObject> object;
        QString name;
        QString path;
    };
    Service all[] = {
        { std::make_unique<NotificationService>(calls), QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("/org/freedesktop/Notifications") },
        { std::make_unique<FileManagerService>(calls), QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1") },
        { std::make_unique<TrayWatcherService>(calls), QStringLiteral("org.kde.StatusNotifierWatcher"),
            QStringLiteral("/StatusNotifierWatcher") },
    };
    for (Service& s : all) {
        if (!withTray && s.name == QStringLiteral("org.kde.StatusNotifierWatcher")) continue;
        // Calls reach an object on its own thread: this one, never the test's.
        s.object->moveToThread(&thread);
        if (!bus.registerObject(s.path, s.object.get(),
                QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties
                    | QDBusConnection::ExportAllSignals)
            || !bus.registerService(s.name))
            problem += QStringLiteral("%1 not registered: %2; ").arg(s.name, bus.lastError().message());
        services.push_back(std::move(s.object));
    }
}

DesktopServices::~DesktopServices()
{
    if (bus.isConnected()) {
        bus.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
        bus.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
        bus.unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("velotape-test-desktop-services"));
    thread.quit();
    thread.wait();
}

std::vector<DesktopServices::Notification> DesktopServices::notifications() const
{
    const std::lock_guard guard(calls->lock);
    return calls->notifications;
}

QStringList DesktopServices::shownItems() const
{
    const std::lock_guard guard(calls->lock);
    return calls->shownItems;
}

QStringList DesktopServices::trayItems() const
{
    const std::lock_guard guard(calls->lock);
    return calls->trayItems;
}

void DesktopServices::invokeAction(uint id, const QString& key)
{
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    const QString interface = QStringLiteral("org.freedesktop.Notifications");
    QDBusMessage action = QDBusMessage::createSignal(path, interface, QStringLiteral("ActionInvoked"));
    action << id << key;
    bus.send(action);
    QDBusMessage closed = QDBusMessage::createSignal(path, interface, QStringLiteral("NotificationClosed"));
    closed << id << uint(2); // dismissed by the user
    bus.send(closed);
}

void DesktopServices::stopNotifications()
{
    bus.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
}

#include "DesktopServices.moc"

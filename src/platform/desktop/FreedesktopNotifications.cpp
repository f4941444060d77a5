#include "platform/desktop/FreedesktopNotifications.h"

#include "core/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <QVariantMap>

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");

} // namespace

FreedesktopNotifications::FreedesktopNotifications(QDBusConnection connection, QString id, QObject* parent)
    : QObject(parent)
    , bus(std::move(connection))
    , appId(std::move(id))
{
    if (!bus.isConnected()) return;
    // From whichever daemon owns the name: the sender is left open, as the daemon may be replaced.
    bus.connect(QString(), path, interface, QStringLiteral("ActionInvoked"), this, SLOT(actionInvoked(uint, QString)));
    bus.connect(
        QString(), path, interface, QStringLiteral("NotificationClosed"), this, SLOT(notificationClosed(uint, uint)));
}

void FreedesktopNotifications::notify(const QString& summary, const QString& body, const std::vector<Action>& actions,
    std::function<void(const QString& key)> onAction)
{
    if (!bus.isConnected()) return;
    QStringList flatActions;
    for (const Action& a : actions)
        flatActions << a.key << a.label;
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    const QVariantMap hints { { QStringLiteral("desktop-entry"), appId } };
    call << QStringLiteral("Velotape") << uint(0) << appId << summary << body << flatActions << hints << int(-1);

    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    QPointer<FreedesktopNotifications> self(this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [self, onAction = std::move(onAction), hasActions = !actions.empty()](QDBusPendingCallWatcher* w) {
            w->deleteLater();
            if (!self) return;
            const QDBusPendingReply<uint> reply = *w;
            if (reply.isError()) {
                // No daemon in this session: the standard output and the window say it already.
                if (!self->missingServiceLogged)
                    logLine(QStringLiteral("Notifications are not shown: %1").arg(reply.error().message()));
                self->missingServiceLogged = true;
                return;
            }
            self->missingServiceLogged = false;
            if (hasActions && onAction) self->pending.insert(reply.value(), onAction);
        });
}

void FreedesktopNotifications::actionInvoked(uint id, const QString& key)
{
    const auto found = pending.constFind(id);
    if (found == pending.constEnd()) return; // another program's notification, or one already answered
    const std::function<void(const QString&)> callback = *found;
    pending.erase(found);
    callback(key);
}

void FreedesktopNotifications::notificationClosed(uint id, uint)
{
    // A daemon sends the action before it closes the notification the action came from, so
    // forgetting it here never loses one.
    pending.remove(id);
}

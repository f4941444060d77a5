#include "platform/wayland/PortalGlobalShortcuts.h"

#include "core/Log.h"
#include "platform/wayland/PortalRequest.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QPointer>
#include <QThreadPool>

#include <mutex>

namespace {

const QString globalShortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
// Binding may open a dialog of the desktop's; a person answers it.
constexpr int bindTimeoutMs = 10 * 60 * 1000;
constexpr int requestTimeoutMs = 30 * 1000;

struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

PortalGlobalShortcuts::PortalGlobalShortcuts(QDBusConnection bus)
    : bus(std::move(bus))
{
    static std::once_flag registered;
    std::call_once(registered, [] {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<QList<PortalShortcut>>();
    });
}

PortalGlobalShortcuts::~PortalGlobalShortcuts()
{
    *alive = false;
    if (sessionHandle.isEmpty()) return;
    bus.send(QDBusMessage::createMethodCall(PortalRequest::service, sessionHandle,
        QStringLiteral("org.freedesktop.portal.Session"), QStringLiteral("Close")));
}

bool PortalGlobalShortcuts::available(QDBusConnection bus)
{
    if (!bus.isConnected()) return false;
    QDBusMessage get = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({ globalShortcuts, QStringLiteral("version") });
    return bus.call(get, QDBus::Block, requestTimeoutMs).type() == QDBusMessage::ReplyMessage;
}

QString PortalGlobalShortcuts::triggerOf(const HotkeyBinding& binding)
{
    if (!binding.enabled || binding.keyChar.isEmpty()) return {};
    // The names of the freedesktop shortcut format that the portal reads: CTRL, ALT, SHIFT, LOGO, then
    // the key's own name.
    QStringList parts;
    if (binding.modifierRaw & HotkeyBinding::commandBit) parts << QStringLiteral("CTRL");
    if (binding.modifierRaw & HotkeyBinding::optionBit) parts << QStringLiteral("ALT");
    if (binding.modifierRaw & HotkeyBinding::shiftBit) parts << QStringLiteral("SHIFT");
    if (binding.modifierRaw & HotkeyBinding::controlBit) parts << QStringLiteral("LOGO");
    parts << binding.keyChar.toLower();
    return parts.join(QLatin1Char('+'));
}

void PortalGlobalShortcuts::bind(const std::vector<Shortcut>& shortcuts, Activated activated)
{
    onActivated = std::move(activated);
    // By path alone, as the portal's other signals are; the session is checked in the slot.
    if (!bus.connect(QString(), PortalRequest::path, globalShortcuts, QStringLiteral("Activated"), this,
            SLOT(activated(QDBusMessage))))
        logLine(QStringLiteral("Desktop shortcuts: cannot listen for them: ") + bus.lastError().message());

    QList<PortalShortcut> wanted;
    for (const Shortcut& shortcut : shortcuts) {
        QVariantMap properties { { QStringLiteral("description"), shortcut.description } };
        if (const QString trigger = triggerOf(shortcut.preferred); !trigger.isEmpty())
            properties.insert(QStringLiteral("preferred_trigger"), trigger);
        wanted.append({ shortcut.id, properties });
    }
    QThreadPool::globalInstance()->start([bus = bus, wanted, guard = QPointer<PortalGlobalShortcuts>(this)] {
        const PortalRequest::Answer created = PortalRequest::call(bus, globalShortcuts, QStringLiteral("CreateSession"),
            { QVariantMap { { QStringLiteral("session_handle_token"), PortalRequest::newToken() } } },
            requestTimeoutMs);
        const QString handle = created.results.value(QStringLiteral("session_handle")).toString();
        if (created.response != 0 || handle.isEmpty()) {
            logLine(QStringLiteral("Desktop shortcuts: no session (%1)").arg(created.error));
            return;
        }
        const PortalRequest::Answer bound = PortalRequest::call(bus, globalShortcuts, QStringLiteral("BindShortcuts"),
            { QVariant::fromValue(QDBusObjectPath(handle)), QVariant::fromValue(wanted), QString(), QVariantMap {} },
            bindTimeoutMs);
        if (bound.response != 0) {
            logLine(bound.response == 1 ? QStringLiteral("Desktop shortcuts: the user declined them")
                                        : QStringLiteral("Desktop shortcuts: not bound (%1)").arg(bound.error));
            return;
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard, handle] {
                if (guard) guard->sessionReady(handle);
            },
            Qt::QueuedConnection);
    });
}

void PortalGlobalShortcuts::sessionReady(const QString& handle)
{
    sessionHandle = handle;
    logLine(QStringLiteral("Desktop shortcuts bound"));
}

void PortalGlobalShortcuts::activated(const QDBusMessage& message)
{
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || !onActivated) return;
    if (arguments[0].value<QDBusObjectPath>().path() != sessionHandle) return;
    onActivated(arguments[1].toString());
}

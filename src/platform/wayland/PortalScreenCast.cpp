#include "platform/wayland/PortalScreenCast.h"

#include "core/Log.h"
#include "platform/wayland/PortalRequest.h"
#include "platform/wayland/PortalSessionWatch.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

#include <unistd.h>

namespace {

const QString screenCast = QStringLiteral("org.freedesktop.portal.ScreenCast");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
// A chooser is a person deciding; the desktop's own timeouts are longer than any of ours would be.
constexpr int chooserTimeoutMs = 10 * 60 * 1000;
constexpr int requestTimeoutMs = 30 * 1000;

enum SourceType : uint { monitor = 1, window = 2 };
enum CursorMode : uint { hidden = 1, embedded = 2, metadata = 4 };
constexpr uint persistUntilRevoked = 2;

std::optional<uint> portalProperty(QDBusConnection bus, const QString& name)
{
    QDBusMessage get = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({ screenCast, name });
    const QDBusMessage reply = bus.call(get, QDBus::Block, requestTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    bool ok = false;
    const uint value = reply.arguments().first().value<QDBusVariant>().variant().toUInt(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

// A pair of integers as the portal sends it, (ii).
std::optional<QPoint> intPair(const QVariant& value)
{
    if (!value.canConvert<QDBusArgument>()) return std::nullopt;
    const QDBusArgument argument = value.value<QDBusArgument>();
    int a = 0, b = 0;
    argument.beginStructure();
    argument >> a >> b;
    argument.endStructure();
    return QPoint(a, b);
}

// streams: a(ua{sv}); the first one is ours (we never ask for several).
std::optional<PortalScreenCast::Stream> firstStream(const QVariant& streams)
{
    if (!streams.canConvert<QDBusArgument>()) return std::nullopt;
    const QDBusArgument argument = streams.value<QDBusArgument>();
    std::optional<PortalScreenCast::Stream> first;
    argument.beginArray();
    while (!argument.atEnd()) {
        PortalScreenCast::Stream stream;
        QVariantMap properties;
        argument.beginStructure();
        argument >> stream.nodeId >> properties;
        argument.endStructure();
        if (first) continue;
        if (auto size = intPair(properties.value(QStringLiteral("size")))) stream.size = QSize(size->x(), size->y());
        if (auto position = intPair(properties.value(QStringLiteral("position")))) stream.position = *position;
        stream.sourceType = properties.value(QStringLiteral("source_type")).toUInt();
        stream.id = properties.value(QStringLiteral("id")).toString();
        first = stream;
    }
    argument.endArray();
    return first;
}

} // namespace

PortalScreenCast::PortalScreenCast(QDBusConnection bus)
    : bus(std::move(bus))
    , watch(std::make_unique<PortalSessionWatch>())
{
    if (QCoreApplication* app = QCoreApplication::instance()) watch->moveToThread(app->thread());
    watch->onClosed = [this] {
        {
            std::lock_guard lock(mutex);
            sessionHandle.clear();
        }
        if (closedCallback) closedCallback();
    };
}

PortalScreenCast::~PortalScreenCast()
{
    close();
}

bool PortalScreenCast::available(QDBusConnection bus)
{
    if (!bus.isConnected()) return false;
    QDBusConnectionInterface* names = bus.interface();
    if (!names) return false;
    const bool running = names->isServiceRegistered(PortalRequest::service).value();
    const bool startable = running || names->activatableServiceNames().value().contains(PortalRequest::service);
    return startable && portalProperty(bus, QStringLiteral("version")).has_value();
}

void PortalScreenCast::setOnClosed(std::function<void()> callback)
{
    closedCallback = std::move(callback);
}

bool PortalScreenCast::isOpen() const
{
    std::lock_guard lock(mutex);
    return !sessionHandle.isEmpty();
}

PortalScreenCast::Started PortalScreenCast::start(const QString& restoreToken, bool showCursor)
{
    close();
    Started started;
    auto failed = [&](const QString& step, const PortalRequest::Answer& answer) {
        if (answer.response == 1) {
            started.outcome = Outcome::cancelled;
        } else {
            started.outcome = Outcome::failed;
            started.error = answer.error.isEmpty()
                ? QStringLiteral("the desktop portal refused %1 (response %2)").arg(step).arg(answer.response)
                : answer.error;
        }
        close();
        return started;
    };

    const PortalRequest::Answer created = PortalRequest::call(bus, screenCast, QStringLiteral("CreateSession"),
        { QVariantMap { { QStringLiteral("session_handle_token"), PortalRequest::newToken() } } }, requestTimeoutMs);
    if (created.response != 0) return failed(QStringLiteral("a screen-cast session"), created);
    const QString handle = created.results.value(QStringLiteral("session_handle")).toString();
    if (handle.isEmpty()) {
        started.error = QStringLiteral("the desktop portal made no session");
        return started;
    }
    {
        std::lock_guard lock(mutex);
        sessionHandle = handle;
    }
    // By path alone, as the requests' answers are.
    bus.connect(QString(), handle, sessionInterface, QStringLiteral("Closed"), watch.get(), SLOT(closed(QVariantMap)));

    const uint sourceTypes = portalProperty(bus, QStringLiteral("AvailableSourceTypes")).value_or(monitor);
    const uint cursorModes = portalProperty(bus, QStringLiteral("AvailableCursorModes")).value_or(0);
    QVariantMap selection {
        { QStringLiteral("types"),
            uint(sourceTypes & (monitor | window)) ? uint(sourceTypes & (monitor | window)) : uint(monitor) },
        { QStringLiteral("multiple"), false },
        { QStringLiteral("persist_mode"), persistUntilRevoked },
    };
    // The cursor beside the pictures where the desktop can send it so: shown or hidden is then
    // decided here, frame by frame, and a moving cursor costs no whole picture. Otherwise drawn in
    // when it is to be seen, left out when not; a desktop that offers neither does what it does.
    const uint wanted = (cursorModes & metadata) ? metadata : showCursor ? embedded : hidden;
    if (cursorModes & wanted) selection.insert(QStringLiteral("cursor_mode"), wanted);
    if (!restoreToken.isEmpty()) selection.insert(QStringLiteral("restore_token"), restoreToken);
    const PortalRequest::Answer selected = PortalRequest::call(bus, screenCast, QStringLiteral("SelectSources"),
        { QVariant::fromValue(QDBusObjectPath(handle)), selection }, requestTimeoutMs);
    if (selected.response != 0) return failed(QStringLiteral("the choice of sources"), selected);

    const PortalRequest::Answer begun = PortalRequest::call(bus, screenCast, QStringLiteral("Start"),
        { QVariant::fromValue(QDBusObjectPath(handle)), QString(), QVariantMap {} }, chooserTimeoutMs);
    if (begun.response != 0) return failed(QStringLiteral("the screen cast"), begun);
    started.stream = firstStream(begun.results.value(QStringLiteral("streams")));
    if (!started.stream) {
        started.error = QStringLiteral("the desktop portal shared no stream");
        close();
        return started;
    }
    started.outcome = Outcome::started;
    started.cursorAsMetadata = wanted == metadata;
    started.restoreToken = begun.results.value(QStringLiteral("restore_token")).toString();
    return started;
}

int PortalScreenCast::openPipeWireRemote(QString* error)
{
    QString handle;
    {
        std::lock_guard lock(mutex);
        handle = sessionHandle;
    }
    if (handle.isEmpty()) {
        *error = QStringLiteral("no screen-cast session is open");
        return -1;
    }
    QDBusMessage open = QDBusMessage::createMethodCall(
        PortalRequest::service, PortalRequest::path, screenCast, QStringLiteral("OpenPipeWireRemote"));
    open.setArguments({ QVariant::fromValue(QDBusObjectPath(handle)), QVariantMap {} });
    const QDBusMessage reply = bus.call(open, QDBus::Block, requestTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        *error = QStringLiteral("the desktop portal gave no PipeWire connection: ") + reply.errorMessage();
        return -1;
    }
    const QDBusUnixFileDescriptor fd = reply.arguments().first().value<QDBusUnixFileDescriptor>();
    if (!fd.isValid()) {
        *error = QStringLiteral("the desktop portal gave no PipeWire connection");
        return -1;
    }
    // The message's descriptor closes with it: ours is a copy.
    return ::dup(fd.fileDescriptor());
}

void PortalScreenCast::close()
{
    QString handle;
    {
        std::lock_guard lock(mutex);
        handle = std::exchange(sessionHandle, QString());
    }
    if (handle.isEmpty()) return;
    bus.disconnect(
        QString(), handle, sessionInterface, QStringLiteral("Closed"), watch.get(), SLOT(closed(QVariantMap)));
    QDBusMessage close
        = QDBusMessage::createMethodCall(PortalRequest::service, handle, sessionInterface, QStringLiteral("Close"));
    bus.send(close);
}

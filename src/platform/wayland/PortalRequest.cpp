#include "platform/wayland/PortalRequest.h"

#include "core/Log.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QEventLoop>
#include <QGuiApplication>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <atomic>
#include <mutex>

const QString PortalRequest::service = QStringLiteral("org.freedesktop.portal.Desktop");
const QString PortalRequest::path = QStringLiteral("/org/freedesktop/portal/desktop");

namespace {

// Signals are matched by their object path alone: the path holds our unique name and a token of
// ours, and a match on the sender's well-known name could miss a signal that comes before the bus
// has told us who owns it.
const QString anySender;

// Receives one Response in the thread that waits for it.
class ResponseReceiver : public QObject {
    Q_OBJECT
public:
    bool answered = false;
    uint response = 2;
    QVariantMap results;
    QEventLoop loop;

public slots:
    void onResponse(uint code, const QVariantMap& values)
    {
        answered = true;
        response = code;
        results = values;
        loop.quit();
    }
};

// Once for each connection, before its first request: a portal with the host registry
// (xdg-desktop-portal 1.19 and later) learns from us which desktop entry this program is, rather
// than guessing it from the process, and shows that name in its dialogs and settings. An older
// portal has no such interface, and then nothing changes.
void registerHostOnce(const QDBusConnection& bus)
{
    static std::mutex mutex;
    static QSet<QString> registered; // by the connection's unique name
    {
        std::lock_guard lock(mutex);
        if (registered.contains(bus.baseService())) return;
        registered.insert(bus.baseService());
    }
    const QString appId = QGuiApplication::desktopFileName();
    if (appId.isEmpty()) return;
    QDBusMessage registration = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
        QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register"));
    registration.setArguments({ appId, QVariantMap {} });
    const QDBusMessage reply = bus.call(registration, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        logLine(QStringLiteral("Desktop portal: registered as ") + appId);
        return;
    }
    const QDBusError::ErrorType error = QDBusError(reply).type();
    if (error == QDBusError::UnknownMethod || error == QDBusError::UnknownInterface
        || error == QDBusError::UnknownObject) {
        logLine(QStringLiteral("Desktop portal: no host registry; the desktop knows this program by its process"));
        return;
    }
    logLine(QStringLiteral("Desktop portal: not registered as %1: %2").arg(appId, reply.errorMessage()));
}

} // namespace

QString PortalRequest::newToken()
{
    static std::atomic<int> counter { 0 };
    return QStringLiteral("velotape%1").arg(++counter);
}

QString PortalRequest::requestPath(const QDBusConnection& bus, const QString& token)
{
    // ":1.42" becomes "1_42", as the portal names its objects.
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

PortalRequest::Answer PortalRequest::call(
    QDBusConnection bus, const QString& interface, const QString& method, QList<QVariant> arguments, int timeoutMs)
{
    Answer answer;
    if (arguments.isEmpty()) {
        answer.error = QStringLiteral("no options");
        return answer;
    }
    registerHostOnce(bus);
    const QString token = newToken();
    QVariantMap options = arguments.last().toMap();
    options.insert(QStringLiteral("handle_token"), token);
    arguments.last() = options;

    ResponseReceiver receiver;
    const QString expected = requestPath(bus, token);
    const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
    const QString signal = QStringLiteral("Response");
    const char* slot = SLOT(onResponse(uint, QVariantMap));
    bus.connect(anySender, expected, requestInterface, signal, &receiver, slot);

    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    const QDBusMessage reply = bus.call(message, QDBus::Block, 30000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        bus.disconnect(anySender, expected, requestInterface, signal, &receiver, slot);
        answer.error = reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
        return answer;
    }
    // A portal older than the token scheme makes up its own path: listen there too.
    const QString made = reply.arguments().value(0).value<QDBusObjectPath>().path();
    if (!made.isEmpty() && made != expected) bus.connect(anySender, made, requestInterface, signal, &receiver, slot);

    if (!receiver.answered) {
        QTimer::singleShot(timeoutMs, &receiver.loop, &QEventLoop::quit);
        receiver.loop.exec();
    }
    bus.disconnect(anySender, expected, requestInterface, signal, &receiver, slot);
    if (!made.isEmpty() && made != expected) bus.disconnect(anySender, made, requestInterface, signal, &receiver, slot);
    if (!receiver.answered) {
        answer.error = QStringLiteral("the desktop portal did not answer %1").arg(method);
        return answer;
    }
    answer.response = int(receiver.response);
    answer.results = receiver.results;
    return answer;
}

#include "PortalRequest.moc"

#include "app/control/ControlServer.h"

#include "app/control/ControlListener.h"

#include <QLocalSocket>
#include <QTimer>

#include <unistd.h>

using ControlProtocol::Reply;

ControlServer::ControlServer(Handler h, QObject* parent)
    : ControlServer(std::move(h), Options {}, parent)
{
}

ControlServer::ControlServer(Handler h, Options opts, QObject* parent)
    : QObject(parent)
    , handler(std::move(h))
    , options(opts)
    , ownerUid(opts.ownerUid.value_or(::getuid()))
    , listener(new ControlListener(
          ownerUid, [this](qintptr descriptor) { serve(descriptor); }, this))
{
}

ControlServer::~ControlServer() = default;

QString ControlServer::socketPath() const
{
    return listener->path();
}

ControlServer::ListenResult ControlServer::listen(const QString& path, QString* error)
{
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(500)) {
        const std::optional<uint32_t> peer = ControlProtocol::peerUserId(probe.socketDescriptor());
        probe.abort();
        if (peer == ownerUid) return ListenResult::alreadyRunning;
        if (error)
            *error = QStringLiteral("a program of another user (uid %1) answers there")
                         .arg(peer ? QString::number(*peer) : QStringLiteral("unknown"));
        return ListenResult::failed;
    }
    // Nobody answers: whatever file is there was left behind by an instance that died.
    return listener->listen(path, error) ? ListenResult::listening : ListenResult::failed;
}

void ControlServer::serve(qintptr descriptor)
{
    if (openConnections >= options.maxConnections) {
        ::close(int(descriptor));
        return;
    }
    auto* socket = new QLocalSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        ::close(int(descriptor));
        delete socket;
        return;
    }
    ++openConnections;
    connect(socket, &QObject::destroyed, this, [this] { --openConnections; });
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    // Whatever a client sends, no more than one request's worth is read in.
    socket->setReadBufferSize(options.maxRequestBytes);
    // The whole exchange has one deadline: a client that sends no line in time is told so, and one
    // that is still around after its answer is dropped.
    QTimer::singleShot(options.requestTimeoutMs, socket, [this, socket] {
        if (socket->state() == QLocalSocket::ConnectedState)
            answer(
                socket, Reply::failure(QStringLiteral("no request line within %1 ms").arg(options.requestTimeoutMs)));
        socket->abort();
    });
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
    readRequest(socket); // the line may already be there
}

void ControlServer::readRequest(QLocalSocket* socket)
{
    if (socket->state() != QLocalSocket::ConnectedState) return; // answered already
    if (socket->canReadLine()) {
        const QStringList command = ControlProtocol::decodeRequest(socket->readLine(options.maxRequestBytes));
        answer(socket, command.isEmpty() ? Reply::failure(QStringLiteral("empty command")) : handler(command));
        return;
    }
    if (socket->bytesAvailable() >= options.maxRequestBytes)
        answer(socket, Reply::failure(QStringLiteral("request longer than %1 bytes").arg(options.maxRequestBytes)));
}

void ControlServer::answer(QLocalSocket* socket, const Reply& reply)
{
    socket->write(ControlProtocol::encodeReply(reply));
    socket->flush();
    socket->disconnectFromServer();
}

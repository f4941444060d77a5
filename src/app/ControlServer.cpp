#include "app/ControlServer.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

ControlServer::ControlServer(Handler h, QObject* parent)
    : QObject(parent)
    , handler(std::move(h))
    , server(new QLocalServer(this))
{
    server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(server, &QLocalServer::newConnection, this, &ControlServer::serve);
}

ControlServer::~ControlServer() = default;

QString ControlServer::socketPath() const
{
    return server->fullServerName();
}

ControlServer::ListenResult ControlServer::listen(const QString& path, QString* error)
{
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(500)) {
        probe.disconnectFromServer();
        return ListenResult::alreadyRunning;
    }
    // Nobody answers: whatever file is there was left behind by an instance that died.
    QLocalServer::removeServer(path);
    if (!server->listen(path)) {
        if (error) *error = server->errorString();
        return ListenResult::failed;
    }
    return ListenResult::listening;
}

void ControlServer::serve()
{
    while (QLocalSocket* socket = server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        auto answer = [this, socket = QPointer<QLocalSocket>(socket)] {
            if (!socket || !socket->canReadLine()) return;
            const QStringList command = ControlProtocol::decodeRequest(socket->readLine(4096));
            const ControlProtocol::Reply reply = command.isEmpty()
                ? ControlProtocol::Reply::failure(QStringLiteral("empty command"))
                : handler(command);
            socket->write(ControlProtocol::encodeReply(reply));
            socket->flush();
            socket->disconnectFromServer();
        };
        connect(socket, &QLocalSocket::readyRead, this, answer);
        answer(); // the line may already be there
    }
}

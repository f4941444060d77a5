#include "app/client/ControlClient.h"

#include "app/client/ControlProtocol.h"
#include "app/client/ControlSocketPath.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QTextStream>

#include <unistd.h>

namespace ControlClient {

int send(const QString& socketPath, const QStringList& command, QTextStream& out, QTextStream& err, int timeoutMs,
    std::optional<uint32_t> ownerUid)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(timeoutMs)) {
        // Only a socket that nobody listens on means no instance: one that is there but slow to
        // take the connection (a full backlog, a stalled instance) is not to be called stopped.
        const QLocalSocket::LocalSocketError why = socket.error();
        if (why == QLocalSocket::ServerNotFoundError || why == QLocalSocket::ConnectionRefusedError)
            err << "velotape is not running (nothing listens on " << socketPath << ")\n";
        else
            err << "velotape: no answer from the running instance on " << socketPath << " (" << socket.errorString()
                << ")\n";
        return 1;
    }
    // Whoever answers must be us: a command is not given away, and an answer is not believed, if
    // another user's program holds the socket.
    const std::optional<uint32_t> peer = ControlProtocol::peerUserId(socket.socketDescriptor());
    if (peer != ownerUid.value_or(::getuid())) {
        err << "velotape: not talking to " << socketPath << ": a program of another user ("
            << (peer ? QStringLiteral("uid %1").arg(*peer) : QStringLiteral("unknown uid")) << ") answers there\n";
        return 1;
    }
    socket.write(ControlProtocol::encodeRequest(command));
    socket.flush();
    QElapsedTimer timer;
    timer.start();
    while (!socket.canReadLine()) {
        const qint64 left = timeoutMs - timer.elapsed();
        if (left <= 0 || !socket.waitForReadyRead(int(left))) {
            if (socket.canReadLine()) break;
            err << "velotape: no answer from the running instance on " << socketPath << "\n";
            return 1;
        }
    }
    const ControlProtocol::Reply reply = ControlProtocol::decodeReply(socket.readLine());
    if (reply.ok) {
        out << reply.text << '\n';
        return 0;
    }
    err << reply.text << '\n';
    return 2;
}

int sendToOwnInstance(const QStringList& command, QTextStream& out, QTextStream& err)
{
    const ControlSocketPath::Location socket = ControlSocketPath::forThisUser(false);
    if (!socket.error.isEmpty()) {
        err << "velotape: " << socket.error << '\n';
        return 1;
    }
    return send(socket.path, command, out, err);
}

} // namespace ControlClient

#include "app/ControlClient.h"

#include "app/ControlProtocol.h"

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QTextStream>

namespace ControlClient {

int send(const QString& socketPath, const QStringList& command, QTextStream& out, QTextStream& err, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(timeoutMs)) {
        err << "velotape is not running (no answer on " << socketPath << ")\n";
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
            err << "velotape did not answer\n";
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

} // namespace ControlClient

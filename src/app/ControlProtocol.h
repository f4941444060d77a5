#pragma once

#include <QString>
#include <QStringList>

// The line protocol between `velotape <command>` and the running instance: the client writes one
// line (the command and its arguments separated by spaces), the instance answers one line that
// starts with "ok " or "error " and closes the connection.
namespace ControlProtocol {

// The socket lives in the user's runtime directory; without one, in the temporary directory under a
// name that carries the user id.
QString defaultSocketPath();

struct Reply {
    bool ok = true;
    QString text;

    static Reply success(const QString& text) { return { true, text }; }
    static Reply failure(const QString& text) { return { false, text }; }
};

QByteArray encodeRequest(const QStringList& command);
QStringList decodeRequest(const QByteArray& line);
QByteArray encodeReply(const Reply& reply);
Reply decodeReply(const QByteArray& line);

} // namespace ControlProtocol

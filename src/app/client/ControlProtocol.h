#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

// The line protocol between `velotape <command>` and the running instance: the client writes one
// line (the command and its arguments separated by spaces), the instance answers one line that
// starts with "ok " or "error " and closes the connection.
namespace ControlProtocol {

// The user id of the process at the other end of a connected local socket; none if the kernel
// does not say. Both ends talk only to a peer of their own user.
std::optional<uint32_t> peerUserId(qintptr socketDescriptor);

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

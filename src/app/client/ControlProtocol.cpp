#include "app/client/ControlProtocol.h"

#include <QUrl>

#include <sys/socket.h>

namespace ControlProtocol {

std::optional<uint32_t> peerUserId(qintptr socketDescriptor)
{
    struct ucred credentials { };
    socklen_t length = sizeof credentials;
    if (::getsockopt(int(socketDescriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0
        || length != sizeof credentials)
        return std::nullopt;
    return credentials.uid;
}

// Arguments are percent-encoded so that a title with spaces stays one argument.
QByteArray encodeRequest(const QStringList& command)
{
    QByteArrayList parts;
    for (const QString& arg : command)
        parts << QUrl::toPercentEncoding(arg);
    return parts.join(' ') + '\n';
}

QStringList decodeRequest(const QByteArray& line)
{
    QStringList out;
    for (const QByteArray& part : line.trimmed().split(' '))
        if (!part.isEmpty()) out << QUrl::fromPercentEncoding(part);
    return out;
}

QByteArray encodeReply(const Reply& reply)
{
    QString text = reply.text;
    text.replace(u'\n', u' ');
    return (reply.ok ? QByteArrayLiteral("ok ") : QByteArrayLiteral("error ")) + text.toUtf8() + '\n';
}

Reply decodeReply(const QByteArray& line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    if (text.startsWith(QStringLiteral("ok"))) return Reply::success(text.mid(2).trimmed());
    if (text.startsWith(QStringLiteral("error"))) return Reply::failure(text.mid(5).trimmed());
    return Reply::failure(QStringLiteral("unreadable answer from the running instance"));
}

} // namespace ControlProtocol

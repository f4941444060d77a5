#include "app/control/ControlListener.h"

#include "app/client/ControlProtocol.h"
#include "core/Log.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Failures that say the process or the system is short of something for now; the waiting
// connection is still there and a later accept takes it.
bool isShortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

ControlListener::ControlListener(uint32_t ownerUid, Accepted accepted, QObject* parent)
    : QObject(parent)
    , ownerUid(ownerUid)
    , accepted(std::move(accepted))
    , retryTimer(new QTimer(this))
{
    retryTimer->setSingleShot(true);
    retryTimer->setInterval(retryIntervalMs);
    connect(retryTimer, &QTimer::timeout, this, &ControlListener::retry);
}

ControlListener::~ControlListener()
{
    close();
    if (socketPath.isEmpty()) return;
    const QByteArray native = QFile::encodeName(socketPath);
    struct stat info { };
    if (::lstat(native.constData(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_ino == socketInode)
        ::unlink(native.constData());
}

bool ControlListener::listen(const QString& path, QString* error)
{
    close();
    socketPath = path;
    const auto fail = [error](const QString& text) {
        if (error) *error = text;
        return false;
    };
    const QByteArray native = QFile::encodeName(path);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (native.size() >= qsizetype(sizeof address.sun_path))
        return fail(QStringLiteral("the path is longer than a socket's %1 bytes").arg(sizeof address.sun_path - 1));
    std::memcpy(address.sun_path, native.constData(), size_t(native.size()));

    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) return fail(errorText(errno));
    ::unlink(native.constData());
    struct stat info { };
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || ::chmod(native.constData(), 0600) != 0 || ::listen(descriptor, SOMAXCONN) != 0
        || ::lstat(native.constData(), &info) != 0) {
        const int failure = errno;
        ::close(descriptor);
        return fail(errorText(failure));
    }
    listenDescriptor = descriptor;
    socketInode = info.st_ino;
    notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &ControlListener::acceptPending);
    return true;
}

void ControlListener::acceptPending()
{
    for (;;) {
        const int connection = ::accept4(listenDescriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (connection < 0) {
            // ECONNABORTED: that client gave up while waiting; the next one may be fine.
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) return;
            acceptFailed(errno);
            return;
        }
        if (failureLogged) logLine(QStringLiteral("Control socket: taking connections again"));
        failureLogged = false;
        const std::optional<uint32_t> peer = ControlProtocol::peerUserId(connection);
        if (!peer || *peer != ownerUid) {
            logLine(QStringLiteral("Control socket: refused a connection from uid %1")
                        .arg(peer ? QString::number(*peer) : QStringLiteral("unknown")));
            ::close(connection);
            continue;
        }
        accepted(connection);
    }
}

void ControlListener::acceptFailed(int error)
{
    rebuildOnRetry = !isShortage(error);
    if (!failureLogged) {
        logLine(QStringLiteral("Control socket: cannot take a connection (%1); %2")
                    .arg(errorText(error),
                        rebuildOnRetry ? QStringLiteral("listening again") : QStringLiteral("trying again shortly")));
        failureLogged = true;
    }
    // The socket stays readable while the connection waits; without the pause this would spin.
    notifier->setEnabled(false);
    retryTimer->start();
}

void ControlListener::retry()
{
    if (!rebuildOnRetry && notifier) {
        notifier->setEnabled(true);
        return;
    }
    // The failure was logged when the run began; a socket that cannot be made yet is tried again.
    if (listen(socketPath)) {
        rebuildOnRetry = false;
        return;
    }
    retryTimer->start();
}

void ControlListener::close()
{
    retryTimer->stop();
    delete notifier;
    notifier = nullptr;
    if (listenDescriptor >= 0) ::close(listenDescriptor);
    listenDescriptor = -1;
}

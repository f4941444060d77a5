#pragma once

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>

class QSocketNotifier;
class QTimer;

// The listening end of the control socket. Made by hand rather than with QLocalServer, which closes
// and removes its socket for good when a single accept fails, as it does when the process runs out
// of file descriptors. Here a failed accept only pauses: after a shortage of descriptors or memory
// the connection waits in the backlog and is taken on a later try; after any other failure a fresh
// socket is made at the same path. Connections from another user are closed unanswered.
//
// Main thread only.
class ControlListener : public QObject {
    Q_OBJECT
public:
    // Receives each accepted connection of the owner and is responsible for closing it.
    using Accepted = std::function<void(qintptr socketDescriptor)>;

    // Milliseconds between tries after a failed accept or listen.
    static constexpr int retryIntervalMs = 200;

    ControlListener(uint32_t ownerUid, Accepted accepted, QObject* parent = nullptr);
    // Closes the socket and removes its file, unless another socket has taken the name since.
    ~ControlListener() override;

    // Replaces whatever file is at `path` with a socket that only the owner may use.
    bool listen(const QString& path, QString* error = nullptr);
    QString path() const { return socketPath; }

private:
    void acceptPending();
    void acceptFailed(int error);
    void retry();
    void close();

    uint32_t ownerUid;
    Accepted accepted;
    QString socketPath;
    int listenDescriptor = -1;
    // The inode of the socket file this listener made.
    unsigned long long socketInode = 0;
    QSocketNotifier* notifier = nullptr;
    QTimer* retryTimer;
    bool rebuildOnRetry = false;
    // One log line per run of failures, not one per try.
    bool failureLogged = false;
};

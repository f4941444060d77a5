#pragma once

#include "app/client/ControlProtocol.h"

#include <QObject>
#include <QPointer>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

class ControlListener;
class QLocalSocket;

// The running instance's end of `velotape <command>`: a local socket that answers one request per
// connection through `handler`, to its own user only. Listening also decides which instance runs: a
// second one finds the socket answering and does not start.
//
// A connection is a short exchange with bounds, so that no client can hold the instance's memory or
// descriptors: the request line must arrive whole within `requestTimeoutMs` and fit in
// `maxRequestBytes`, and at most `maxConnections` connections are open at once. Connections are
// served side by side; when all places are taken, a new one takes the place of the one that has
// waited longest, so clients that connect and say nothing can never lock the socket out.
//
// Main thread only; the handler runs on the main thread.
class ControlServer : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<ControlProtocol::Reply(const QStringList& command)>;

    struct Options {
        qint64 maxRequestBytes = 4096; // newline included
        int requestTimeoutMs = 1000;
        int maxConnections = 16;
        // The user whose connections are answered; none: the user running this process.
        std::optional<uint32_t> ownerUid;
    };

    explicit ControlServer(Handler handler, QObject* parent = nullptr);
    ControlServer(Handler handler, Options options, QObject* parent = nullptr);
    ~ControlServer() override;

    enum class ListenResult { listening, alreadyRunning, failed };
    // Takes over a stale socket file left by a crashed instance; refuses while another one answers.
    ListenResult listen(const QString& path, QString* error = nullptr);
    QString socketPath() const;

private:
    void serve(qintptr socketDescriptor);
    void readRequest(QLocalSocket* socket);
    void answer(QLocalSocket* socket, const ControlProtocol::Reply& reply);

    Handler handler;
    Options options;
    uint32_t ownerUid;
    ControlListener* listener;
    // The open connections, oldest first.
    std::deque<QPointer<QLocalSocket>> connections;
};

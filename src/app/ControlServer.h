#pragma once

#include "app/ControlProtocol.h"

#include <QObject>

#include <functional>

class QLocalServer;

// The running instance's end of `velotape <command>`: a local socket, owner-only, that answers one
// request per connection through `handler`. Listening also decides which instance runs: a second
// one finds the socket answering and does not start.
//
// Main thread only; the handler runs on the main thread.
class ControlServer : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<ControlProtocol::Reply(const QStringList& command)>;

    explicit ControlServer(Handler handler, QObject* parent = nullptr);
    ~ControlServer() override;

    enum class ListenResult { listening, alreadyRunning, failed };
    // Takes over a stale socket file left by a crashed instance; refuses while another one answers.
    ListenResult listen(const QString& path, QString* error = nullptr);
    QString socketPath() const;

private:
    void serve();

    Handler handler;
    QLocalServer* server;
};

#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

class QTextStream;

// `velotape <command>` on the client side: sends the command to the running instance and prints its
// one-line answer. It talks only to a socket whose other end runs as its own user.
namespace ControlClient {

// Exit status: 0 when the instance did it, 1 when no instance of ours runs (nothing listens on the
// socket) or the one that runs did not answer in time, each said in its own words, 2 when the
// instance refused the command. `ownerUid` none: the user running this process.
int send(const QString& socketPath, const QStringList& command, QTextStream& out, QTextStream& err,
    int timeoutMs = 5000, std::optional<uint32_t> ownerUid = std::nullopt);

// The same, to the instance of the user running this process, at its usual socket; 1 with the reason
// when that user has no private place for one.
int sendToOwnInstance(const QStringList& command, QTextStream& out, QTextStream& err);

} // namespace ControlClient

#pragma once

#include <QString>
#include <QStringList>

class QTextStream;

// `velotape <command>` on the client side: sends the command to the running instance and prints its
// one-line answer.
namespace ControlClient {

// Exit status: 0 when the instance did it, 1 when no instance runs (or it did not answer), 2 when
// the instance refused the command.
int send(
    const QString& socketPath, const QStringList& command, QTextStream& out, QTextStream& err, int timeoutMs = 5000);

} // namespace ControlClient

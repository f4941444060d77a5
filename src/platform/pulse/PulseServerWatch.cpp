#include "platform/pulse/PulseServerWatch.h"

#include "core/Log.h"
#include "platform/pulse/PulseConnection.h"

PulseServerWatch::PulseServerWatch() = default;

PulseServerWatch::~PulseServerWatch()
{
    connection.reset(); // no report after this
}

void PulseServerWatch::watch(Report r)
{
    report = std::move(r);
    connection = std::make_unique<PulseConnection>(
        PulseConnection::Callbacks { .ready =
                                         [this](pa_context*) {
                                             // The first connection is no news; one after a loss is.
                                             if (!std::exchange(lost, false)) return;
                                             logLine(QStringLiteral("The sound server is back"));
                                             if (report) report(false, {});
                                         },
            .lost =
                [this](const QString& reason) {
                    lost = true;
                    logLine(QStringLiteral("The sound server went away: ") + reason);
                    if (report) report(true, reason);
                } });
    if (const QString error = connection->start(); !error.isEmpty()) logLine(QStringLiteral("Sound server: ") + error);
}

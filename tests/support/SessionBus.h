#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

class QProcess;

// A private D-Bus session bus for a test: a dbus-daemon of its own, its address in
// DBUS_SESSION_BUS_ADDRESS while it runs. Start it before the first use of the session bus in the
// process (before QApplication, to be safe): Qt connects once and keeps that connection.
class SessionBus {
public:
    SessionBus();
    ~SessionBus();

    // Empty string on success, otherwise what failed.
    QString start();
    void stop();

    QString address() const { return busAddress; }

private:
    std::unique_ptr<QProcess> daemon;
    QString busAddress;
    std::optional<QByteArray> savedAddress;
};

#pragma once

#include <QDBusConnection>
#include <QPoint>
#include <QSize>
#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class PortalSessionWatch;

// One screen-cast session of the desktop portal (org.freedesktop.portal.ScreenCast): the desktop
// asks the user what to share (or, given a restore token from an earlier session, does not ask
// again) and answers with a PipeWire node, which OpenPipeWireRemote lets this process read.
//
// Every request's Response is subscribed to before the request is made, so an answer that comes
// at once is never missed. The blocking calls wait in an event loop of the calling thread, which
// may be any thread with a Qt event dispatcher (a pool thread is). The session's end by the
// desktop is reported through `onClosed` on the main thread.
class PortalScreenCast {
public:
    struct Stream {
        uint32_t nodeId = 0;
        QSize size; // in the desktop's logical pixels; may be empty if the portal did not say
        QPoint position; // of a monitor, in the desktop's layout
        uint32_t sourceType = 0; // 1 monitor, 2 window, 4 virtual
        QString id; // the backend's own name of what was chosen, when it gives one
    };
    enum class Outcome { started, cancelled, failed };
    struct Started {
        Outcome outcome = Outcome::failed;
        std::optional<Stream> stream;
        QString restoreToken; // empty when the desktop gave none
        QString error; // Outcome::failed: what went wrong
        // The desktop sends the cursor beside the pictures (its place and bitmap on each buffer),
        // so whether it is seen is this program's choice, not the session's.
        bool cursorAsMetadata = false;
    };

    explicit PortalScreenCast(QDBusConnection bus = QDBusConnection::sessionBus());
    ~PortalScreenCast();
    PortalScreenCast(const PortalScreenCast&) = delete;
    PortalScreenCast& operator=(const PortalScreenCast&) = delete;

    // Whether a portal answers on the bus and offers ScreenCast. Blocking (the portal may be
    // started by the bus).
    static bool available(QDBusConnection bus = QDBusConnection::sessionBus());

    // Blocking. Creates a session, selects sources (a monitor or a window, as the desktop offers;
    // the cursor beside the pictures where the desktop can, else drawn in or left out as
    // `showCursor` says; kept until revoked) and starts it. A running session is closed first.
    Started start(const QString& restoreToken, bool showCursor);
    // Blocking. A socket to PipeWire that sees the session's streams; -1 with *error on failure.
    // The caller owns the descriptor.
    int openPipeWireRemote(QString* error);
    // Ends the session, if one runs. Any thread.
    void close();
    bool isOpen() const;

    // Called on the main thread when the desktop ends the session (the user stopped sharing).
    void setOnClosed(std::function<void()> callback);

private:
    QDBusConnection bus;
    mutable std::mutex mutex;
    QString sessionHandle; // guarded by mutex
    std::unique_ptr<PortalSessionWatch> watch; // lives on the main thread
    std::function<void()> closedCallback; // set before a session starts
};

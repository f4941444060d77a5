#pragma once

#include <QDBusConnection>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// One call of a desktop portal that answers later, through the Response signal of a Request
// object. The object's path is known before the call (the caller's unique bus name and a token of
// ours), so the answer is subscribed to first and cannot slip by.
//
// Blocking: waits in an event loop of the calling thread. Any thread with a Qt event dispatcher.
class PortalRequest {
public:
    struct Answer {
        // 0 done, 1 the user cancelled, 2 anything else; -1 when the call itself failed.
        int response = -1;
        QVariantMap results;
        QString error; // response -1: the D-Bus error
    };

    // A token unique in this process, for handle_token and session_handle_token.
    static QString newToken();
    // The path of the Request object that a call with `token` makes.
    static QString requestPath(const QDBusConnection& bus, const QString& token);

    // Calls `method` of `interface` on the portal with `arguments`, whose last one must be the
    // options map; handle_token is added to it. Waits up to `timeoutMs` for the Response (a chooser
    // may stay open long).
    static Answer call(
        QDBusConnection bus, const QString& interface, const QString& method, QList<QVariant> arguments, int timeoutMs);

    static const QString service; // org.freedesktop.portal.Desktop
    static const QString path; // /org/freedesktop/portal/desktop
};

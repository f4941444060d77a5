#pragma once

#include "platform/DesktopShortcuts.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QVariantMap>

#include <memory>

// The desktop portal's GlobalShortcuts: one session, our actions bound in it, each press reported
// by the portal's Activated signal. Made and used on the main thread; the session is created and
// the shortcuts bound on a pool thread, since the desktop may ask the user first.
class PortalGlobalShortcuts : public QObject, public DesktopShortcuts {
    Q_OBJECT
public:
    explicit PortalGlobalShortcuts(QDBusConnection bus = QDBusConnection::sessionBus());
    ~PortalGlobalShortcuts() override;

    // Whether the session bus has a portal with GlobalShortcuts. Blocking.
    static bool available(QDBusConnection bus = QDBusConnection::sessionBus());
    // A binding as the portal writes triggers: "CTRL+SHIFT+r"; empty for a binding that is off.
    static QString triggerOf(const HotkeyBinding& binding);

    void bind(const std::vector<Shortcut>& shortcuts, Activated activated) override;

public slots:
    // For the bus: QtDBus delivers signals to public slots only.
    // Activated(o session_handle, s shortcut_id, t timestamp, a{sv} options)
    void activated(const QDBusMessage& message);

private:
    void sessionReady(const QString& handle);

    QDBusConnection bus;
    Activated onActivated;
    QString sessionHandle; // main thread
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);
};

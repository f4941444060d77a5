#pragma once

#include <QObject>
#include <QVariantMap>

#include <functional>

// Hears the Closed signal of a portal session on the main thread.
class PortalSessionWatch : public QObject {
    Q_OBJECT
public:
    std::function<void()> onClosed;

public slots:
    void closed(const QVariantMap& details)
    {
        Q_UNUSED(details);
        if (onClosed) onClosed();
    }
};

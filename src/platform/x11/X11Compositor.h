#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;
class XcbConnection;

// Whether a compositing manager runs on the X display (someone owns _NET_WM_CM_S<screen>): only
// then are the alpha values of a window's pixels blended with what lies below. Blocking, one
// round trip on a connection of its own; false when the display can't be reached.
namespace X11Compositor {
bool isRunning();
}

// Says when a compositing manager starts or stops on the X display (the user starts picom, or it
// crashes), from the server's word that the selection's owner changed. Main thread.
class X11CompositorWatch final : public QObject {
    Q_OBJECT
public:
    explicit X11CompositorWatch(QObject* parent = nullptr);
    ~X11CompositorWatch() override;

    bool isRunning() const { return running; }

signals:
    void changed(bool running);

private:
    void readEvents();
    bool ownerExists() const;

    std::unique_ptr<XcbConnection> connection;
    std::unique_ptr<QSocketNotifier> notifier;
    uint32_t selection = 0;
    bool running = false;
};

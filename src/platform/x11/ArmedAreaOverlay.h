#pragma once

#include "platform/ArmedFrame.h"

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

class CaptureBackend;
class QWindow;
class X11CompositorWatch;

// The armed frame on X11: a click-through window over each display that the frame touches, no
// larger than the frame, repainted while it stands where its picture changes, at most once a
// refresh of the display.
//
// Each window is shaped to the frame's band (XShape), so nothing of it ever lies inside the watched
// rectangle, which the area monitor grabs from the screen. With a compositing manager the windows
// are translucent (ARGB). Without one an X window can't be translucent, so each shows, under the
// frame, the picture that band had when the frame appeared. When a compositing manager starts or
// stops while the frame stands, the frame is shown again the other way.
//
// Main thread.
class ArmedAreaOverlay final : public QObject, public ArmedFrame {
    Q_OBJECT
public:
    // `screen` lists the displays and takes the pictures under the frame.
    explicit ArmedAreaOverlay(std::shared_ptr<CaptureBackend> screen, QObject* parent = nullptr);
    ~ArmedAreaOverlay() override;

    void show(const QRectF& globalRect, AreaOverlayStyle style) override;
    void dismiss() override;

    // The windows of the present frame; empty when none stands.
    std::vector<QWindow*> windows() const;
    bool isAnimating() const { return ticker.isActive(); }
    // Whether the present frame is drawn translucent (a compositing manager was found).
    bool isTranslucent() const { return translucent; }

private:
    class FrameWindow;

    void tick();
    // What the screen shows in `part` with no frame on it.
    QImage pictureUnder(const QRect& part);
    void compositorChanged(bool running);

    std::shared_ptr<CaptureBackend> screen;
    std::vector<FrameWindow*> live;
    QTimer ticker;
    QElapsedTimer clock;
    // Seconds between two refreshes of the display.
    double interval = 1.0 / 60;
    bool translucent = false;
    // What the present frame frames, to show it again.
    QRectF shownRect;
    AreaOverlayStyle shownStyle = AreaOverlayStyle::outline;
    std::unique_ptr<X11CompositorWatch> compositor;
    QTimer reshow;
    // The pictures under the present (or last) frame's windows, by window rectangle.
    std::vector<std::pair<QRect, QImage>> underFrame;
};

#pragma once

#include <QImage>
#include <QPointF>
#include <QTimer>
#include <QWidget>

#include <optional>

class AppSettings;

// The live camera on the preview, at the place and size at which the recorder burns it into the
// frames: a child of the preview's picture, which is the recorded frame scaled, so the overlay's
// one geometry on the picture's size puts it exactly where the clip will show it. The user drags it
// to move it; its centre is stored in the settings as fractions of the picture, kept where the
// whole bubble stays inside.
//
// It shows while the camera overlay is on: the camera's newest picture filling the bubble's shape,
// or, until one arrives, "Starting camera…", and "Camera off" when the camera stopped. The frame
// chrome, when on, is the live drawing of the chosen style, animated while shown.
//
// GUI thread only.
class CameraBubble : public QWidget {
    Q_OBJECT
public:
    enum class State { picture, starting, off };

    CameraBubble(AppSettings* settings, QWidget* picture);

    // The camera's newest picture; a null image goes back to the placeholder.
    void setFrame(const QImage& frame);
    // Whether the camera runs: while it doesn't, the bubble says "Camera off".
    void setCameraOn(bool on);

    State state() const;
    // The bubble's rectangle in the picture's coordinates (the widget is larger, for the chrome).
    QRectF bubbleRect() const;
    bool isAnimating() const { return ticker.isActive(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Follows the settings and the picture's size: geometry, visibility, the chrome's timer.
    void place();
    void refreshTicker();
    void paintPlaceholder(QPainter& p, const QRectF& r);

    AppSettings* settings;
    QImage frame;
    bool cameraOn = true;
    // The stored centre and the pointer's position when the present drag began.
    std::optional<QPointF> dragStart;
    QPointF pressedAt;
    QTimer ticker;
};

#pragma once

#include "ui/kit/PulseClock.h"

#include <QAbstractButton>

// The big round record button of the recorder screen, drawn by D1RecordButtonStyle. Its text
// ("Record", or the running time) stands under the glyph inside the circle; it is the accessible
// name unless the screen sets one. Return and Enter press it, as Space does. The glow breathes while the button is on
// screen and enabled, and stands still otherwise.
class D1RecordButton : public QAbstractButton {
    Q_OBJECT
public:
    explicit D1RecordButton(int diameter, QWidget* parent = nullptr);

    void setLive(bool live);
    bool isLive() const { return live; }
    int diameter() const { return circle; }
    // Whether the glow is animating now (for tests and the idle-CPU budget).
    bool isPulsing() const { return pulse.isRunning(); }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& pos) const override;
    bool event(QEvent* event) override;

private:
    void updatePulse();

    int circle;
    bool live = false;
    bool onScreen = false;
    PulseClock pulse;
};

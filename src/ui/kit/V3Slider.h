#pragma once

#include <QSlider>

// A horizontal slider in the look of the switch: a thin rounded track, filled in the accent colour
// up to a white round knob. Only the drawing is the kit's; the knob stands where the style puts
// the slider's handle, so pressing, dragging, paging and the keys behave as in any slider.
class V3Slider : public QSlider {
    Q_OBJECT
public:
    static constexpr qreal trackHeight = 4;
    static constexpr qreal knobSize = 16;

    explicit V3Slider(QWidget* parent = nullptr);

    // The knob's circle in widget coordinates.
    QRectF knobRect() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
};

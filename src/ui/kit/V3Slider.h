#pragma once

#include <QSlider>

// A horizontal slider in the kit's look: a thin inset track, filled in the accent colour up to a
// round white knob. Keyboard and mouse behave as QSlider's; painting follows the appearance.
class V3Slider : public QSlider {
    Q_OBJECT
public:
    static constexpr qreal trackHeight = 4;
    static constexpr qreal knobSize = 16;

    explicit V3Slider(QWidget* parent = nullptr);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
};

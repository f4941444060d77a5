#pragma once

#include <QAbstractButton>

class QVariantAnimation;

// A switch: a track 36 wide and 22 high, accent-coloured when on, with a knob of 18 two pixels from
// its edge; the whole switch grows to 1.04 while hovered. Checkable, so assistive technology sees a
// check box. It draws no text: set its text to the label of its row, which becomes its accessible
// name.
class V3Toggle : public QAbstractButton {
    Q_OBJECT
public:
    static constexpr qreal trackWidth = 36;
    static constexpr qreal trackHeight = 22;
    static constexpr qreal knobSize = 18;
    static constexpr qreal knobInset = 2;
    static constexpr qreal hoverScale = 1.04;

    explicit V3Toggle(QWidget* parent = nullptr);

    // The track in widget coordinates, unscaled.
    QRectF trackRect() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& pos) const override;
    bool event(QEvent* event) override;

private:
    QVariantAnimation* knob;
    double knobAt = 0; // where the knob stands: 0 off .. 1 on
};

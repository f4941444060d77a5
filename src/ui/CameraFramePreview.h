#pragma once

#include "core/SettingsEnums.h"

#include <QTimer>
#include <QWidget>

// A camera frame style on a sample bubble (a face on a gradient, in the chosen shape), drawn by the
// live bubble's own drawing, so that each style in the settings is seen as it will look. It
// animates only while shown and only for a style that moves.
class CameraFramePreview : public QWidget {
    Q_OBJECT
public:
    explicit CameraFramePreview(QWidget* parent = nullptr);

    void setStyle(CameraFrameStyle value);
    void setShape(CameraShape value);
    CameraFrameStyle style() const { return chosen; }
    bool isAnimating() const { return ticker.isActive(); }
    // The sample bubble inside the widget; the chrome draws around it.
    QRectF sampleRect() const;

    QSize sizeHint() const override { return { 200, 130 }; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void refreshTicker();

    CameraFrameStyle chosen = CameraFrameStyle::soft;
    CameraShape shape = CameraShape::roundedRect;
    QTimer ticker;
};

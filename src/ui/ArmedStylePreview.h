#pragma once

#include "core/SettingsEnums.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

// The chosen style of the armed frame, animated around a sample rectangle, drawn exactly as the
// frame on the screen is. It animates only while shown.
class ArmedStylePreview : public QWidget {
    Q_OBJECT
public:
    explicit ArmedStylePreview(QWidget* parent = nullptr);

    void setStyle(AreaOverlayStyle value);
    AreaOverlayStyle style() const { return chosen; }
    bool isAnimating() const { return ticker.isActive(); }
    // The sample rectangle that stands for the watched area, inside the widget.
    QRectF sampleRect() const;

    QSize sizeHint() const override { return { 240, 130 }; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    AreaOverlayStyle chosen = AreaOverlayStyle::glass;
    QTimer ticker;
    QElapsedTimer clock;
};

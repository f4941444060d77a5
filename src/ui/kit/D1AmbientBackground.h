#pragma once

#include <QWidget>

// The window's backdrop: the base colour (V3 bg) under three soft radial glows of the ambient
// colours. Lay other widgets out on it; they show it through wherever they paint nothing.
class D1AmbientBackground : public QWidget {
    Q_OBJECT
public:
    explicit D1AmbientBackground(QWidget* parent = nullptr);

    // The painting alone, for a backdrop drawn into another surface.
    static void paint(QPainter& p, const QRectF& r, const QColor& base);

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
};

#pragma once

#include "ui/kit/DynamicColor.h"
#include "ui/kit/PulseClock.h"

#include <QWidget>

// A small pill of tinted text on a soft background ("ARMED", "12 clips"), optionally with a dot
// before the text that breathes while the chip is on screen. Colours may be V3 names, which follow
// the appearance, or fixed colours. Its accessible role is static text, named by its text.
class V3Chip : public QWidget {
    Q_OBJECT
public:
    static constexpr qreal horizontalInset = 9;
    static constexpr qreal verticalInset = 3;
    static constexpr qreal dotSize = 6;
    static constexpr qreal fontSize = 11;

    V3Chip(const QString& text, QColor tint, QColor background, bool pulseDot = false, QWidget* parent = nullptr);
    V3Chip(const QString& text, const DynamicColor& tint, const DynamicColor& background, bool pulseDot = false,
        QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const { return label; }
    void setColors(const DynamicColor& tint, const DynamicColor& background);
    void setPulseDot(bool on);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    void updatePulse();

    QString label;
    DynamicColor tint;
    DynamicColor background;
    bool pulseDot;
    bool onScreen = false;
    PulseClock pulse;
};

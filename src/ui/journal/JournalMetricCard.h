#pragma once

#include "ui/journal/JournalFigures.h"

#include <QWidget>

// One figure on a card: its label, the value in the colour of its tone, and a line under it.
// Assistive technology reads the label as the card's name and the value, as shown, as its
// description.
class JournalMetricCard : public QWidget {
public:
    static constexpr int valueSize = 26;
    static constexpr int subHeight = 26;

    explicit JournalMetricCard(QWidget* parent = nullptr);

    void setFigure(const MetricFigure& figure);
    const MetricFigure& figure() const { return shown; }
    // The colour of a tone in the widget's appearance.
    static QColor toneColour(MetricTone tone, const QWidget* widget);

    QSize sizeHint() const override { return { 170, 106 }; }
    QSize minimumSizeHint() const override { return { 100, 106 }; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    MetricFigure shown;
};

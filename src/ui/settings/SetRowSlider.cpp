#include "ui/settings/SetRowSlider.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Slider.h"
#include "ui/kit/V3Text.h"

#include <QSignalBlocker>

#include <cmath>

SetRowSlider::SetRowSlider(const QString& label, const QString& help, double min, double max, double stepSize,
    Format formatValue, QWidget* parent)
    : SetRow(label, help, parent)
    , minimum(min)
    , step(stepSize)
    , format(std::move(formatValue))
{
    bar = new V3Slider;
    bar->setRange(0, int(std::lround((max - min) / step)));
    bar->setPageStep(std::max(1, bar->maximum() / 10));
    shown = new V3Text({}, 12, QFont::Medium, V3::fgMute);
    shown->setMinimumWidth(QFontMetrics(shown->font()).horizontalAdvance(QStringLiteral("000 Mbps")));
    shown->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    addControl(bar);
    addControl(shown);
    connect(bar, &QSlider::valueChanged, this, [this](int position) {
        current = minimum + position * step;
        shown->setText(format(current));
        emit valueEdited(current);
    });
}

void SetRowSlider::setValue(double value)
{
    current = value;
    const QSignalBlocker quiet(bar);
    bar->setValue(int(std::lround((value - minimum) / step)));
    bar->update();
    shown->setText(format(value));
}

QString SetRowSlider::valueText() const
{
    return shown->text();
}

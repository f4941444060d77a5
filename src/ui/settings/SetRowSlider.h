#pragma once

#include "ui/settings/SetRow.h"

#include <functional>

class V3Slider;
class V3Text;

// A row with a slider over [minimum, maximum] in steps of `step`, and the formatted value beside
// it. A value outside the range (a hand-edited setting) stands at the slider's end, and its own
// text is shown; it changes only when the user moves the slider.
class SetRowSlider : public SetRow {
    Q_OBJECT
public:
    using Format = std::function<QString(double)>;

    SetRowSlider(const QString& label, const QString& help, double minimum, double maximum, double step, Format format,
        QWidget* parent = nullptr);

    // Shows `value` without reporting it back.
    void setValue(double value);
    double value() const { return current; }
    V3Slider* slider() const { return bar; }
    QString valueText() const;

signals:
    // The user moved the slider.
    void valueEdited(double value);

private:
    double minimum;
    double step;
    Format format;
    double current = 0;
    V3Slider* bar;
    V3Text* shown;
};

#pragma once

#include "ui/kit/V3.h"

#include <QLabel>

// A line or paragraph of text in one of the kit's colours, which follows the appearance: the
// colour is resolved again whenever the palette changes, so screens never touch it.
class V3Text : public QLabel {
public:
    V3Text(const QString& text, int pixelSize, QFont::Weight weight, const DynamicColor& colour,
        QWidget* parent = nullptr);

    void setColour(const DynamicColor& colour);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyColour();

    const DynamicColor* colour;
};

#include "ui/kit/V3Text.h"

#include <QEvent>

V3Text::V3Text(const QString& text, int pixelSize, QFont::Weight weight, const DynamicColor& c, QWidget* parent)
    : QLabel(text, parent)
    , colour(&c)
{
    QFont f = font();
    f.setPixelSize(pixelSize);
    f.setWeight(weight);
    setFont(f);
    // A narrow window wraps a line rather than cutting it off.
    setWordWrap(true);
    applyColour();
}

void V3Text::setColour(const DynamicColor& c)
{
    colour = &c;
    applyColour();
}

void V3Text::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ThemeChange) applyColour();
}

void V3Text::applyColour()
{
    const QColor wanted = colour->resolve(this);
    if (palette().color(QPalette::WindowText) == wanted) return;
    QPalette p = palette();
    p.setColor(QPalette::WindowText, wanted);
    setPalette(p);
}

#include "ui/kit/V3Button.h"

#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3GhostButtonStyle.h"
#include "ui/kit/V3PrimaryButtonStyle.h"
#include "ui/kit/V3RecordButtonStyle.h"
#include "ui/kit/V3SecondaryButtonStyle.h"

#include <QEvent>
#include <QPainter>

#include <cmath>

V3Button::V3Button(Kind kind, const QString& text, QWidget* parent)
    : QPushButton(text, parent)
    , look(kind)
{
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void V3Button::setSymbol(const QString& symbol)
{
    glyph = symbol;
    updateAccessibleName();
    updateGeometry();
    update();
}

void V3Button::setLive(bool on)
{
    if (live == on) return;
    live = on;
    update();
}

void V3Button::setText(const QString& text)
{
    QPushButton::setText(text);
    updateAccessibleName();
    updateGeometry();
}

void V3Button::updateAccessibleName()
{
    // An explicit name set by a screen stays; the symbol's meaning only stands in for absent text.
    if (text().isEmpty() && !glyph.isEmpty()) {
        if (accessibleName().isEmpty() || namedBySymbol) {
            setAccessibleName(Symbols::meaning(glyph));
            namedBySymbol = true;
        }
    } else if (namedBySymbol) {
        setAccessibleName(QString());
        namedBySymbol = false;
    }
}

QSize V3Button::sizeHint() const
{
    V3ButtonState state;
    state.text = text();
    state.symbol = glyph;
    QSizeF size;
    switch (look) {
    case Kind::primary:
        size = V3PrimaryButtonStyle::sizeHint(state);
        break;
    case Kind::secondary:
        size = V3SecondaryButtonStyle::sizeHint(state);
        break;
    case Kind::ghost:
        size = V3GhostButtonStyle::sizeHint(state);
        break;
    case Kind::record:
        size = V3RecordButtonStyle::sizeHint(state);
        break;
    }
    // An icon-only button is square.
    const qreal width = text().isEmpty() && !glyph.isEmpty() ? size.height() : size.width();
    return { int(std::ceil(width)), int(std::ceil(size.height())) };
}

void V3Button::paintEvent(QPaintEvent*)
{
    V3ButtonState state;
    state.text = text();
    state.symbol = glyph;
    state.appearance = appearanceOf(this);
    state.enabled = isEnabled();
    state.pressed = isDown();
    state.hovered = underMouse();
    state.focused = hasFocus();
    state.live = live;

    QPainter p(this);
    const QRectF r = rect();
    switch (look) {
    case Kind::primary:
        V3PrimaryButtonStyle::paint(p, r, state);
        break;
    case Kind::secondary:
        V3SecondaryButtonStyle::paint(p, r, state);
        break;
    case Kind::ghost:
        V3GhostButtonStyle::paint(p, r, state);
        break;
    case Kind::record:
        V3RecordButtonStyle::paint(p, r, state);
        break;
    }
}

bool V3Button::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QPushButton::event(event);
}

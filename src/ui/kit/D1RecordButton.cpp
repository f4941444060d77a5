#include "ui/kit/D1RecordButton.h"

#include "ui/kit/D1RecordButtonStyle.h"
#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"

#include <QEvent>
#include <QPainter>

D1RecordButton::D1RecordButton(int diameter, QWidget* parent)
    : QAbstractButton(parent)
    , circle(diameter)
    , pulse([this] { update(); })
{
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void D1RecordButton::setLive(bool on)
{
    if (live == on) return;
    live = on;
    update();
}

QSize D1RecordButton::sizeHint() const
{
    const int side = circle + 2 * int(D1RecordButtonStyle::margin(circle));
    return { side, side };
}

bool D1RecordButton::hitButton(const QPoint& pos) const
{
    const QPointF d = QPointF(pos) - QRectF(rect()).center();
    return d.x() * d.x() + d.y() * d.y() <= circle * circle / 4.0;
}

void D1RecordButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    D1RecordButtonState state;
    state.live = live;
    state.diameter = circle;
    state.pulse = pulse.value();
    state.text = text();
    state.appearance = appearanceOf(this);
    state.enabled = isEnabled();
    state.pressed = isDown();
    state.hovered = underMouse();
    state.focused = hasFocus();
    D1RecordButtonStyle::paint(p, rect(), state);
}

bool D1RecordButton::event(QEvent* event)
{
    switch (event->type()) {
    case QEvent::Show:
        onScreen = true;
        updatePulse();
        break;
    case QEvent::Hide: // also when the window is minimised, which leaves isVisible() true
        onScreen = false;
        updatePulse();
        break;
    case QEvent::EnabledChange:
        updatePulse();
        break;
    default:
        if (KitPaint::isAppearanceChange(event)) update();
        break;
    }
    return QAbstractButton::event(event);
}

void D1RecordButton::updatePulse()
{
    if (onScreen && isEnabled())
        pulse.start();
    else
        pulse.stop();
    update();
}

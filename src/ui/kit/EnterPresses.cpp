#include "ui/kit/EnterPresses.h"

#include <QAbstractButton>
#include <QKeyEvent>

EnterPresses::EnterPresses(QAbstractButton* target)
    : QObject(target)
    , button(target)
{
    button->installEventFilter(this);
}

bool EnterPresses::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != button || event->type() != QEvent::KeyPress) return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) return false;
    // A modified Return is somebody's shortcut; a held key presses once.
    if ((key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier || key->isAutoRepeat()) return false;
    if (!button->isEnabled()) return false;
    button->animateClick();
    return true;
}

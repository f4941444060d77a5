#pragma once

// Accessible roles for the kit's own widgets that Qt cannot guess from their base class: a chip is
// static text, a segmented control a group of its buttons. Buttons and the toggle need nothing:
// Qt's QAbstractButton bridge already reports a push button, a check box (checkable) or a radio
// button (checkable and exclusive).
namespace KitAccessibility {

// Idempotent; the widgets that need it call it.
void install();

} // namespace KitAccessibility

#pragma once

#include "core/Publisher.h"

// Calls `refresh` after every change of an observable property, for as long as `context` lives:
// how the recorder screen's views redraw from the models they show.
template <typename Obj, typename Getter, typename Signal, typename F>
void onChange(QObject* context, Obj* object, Getter getter, Signal changed, F refresh)
{
    observe(object, getter, changed).dropFirst().sink(context, [refresh](const auto&) { refresh(); });
}

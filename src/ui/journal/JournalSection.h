#pragma once

#include "ui/HeroCard.h"
#include "ui/journal/JournalFigures.h"
#include "ui/kit/DynamicColor.h"

// A card of the journal headed by a title and a subtitle, its content added below them.
HeroCard* journalSection(const QString& title, const QString& subtitle, QWidget* parent);

// The kit colour of a figure's tone.
const DynamicColor& toneColour(MetricTone tone);

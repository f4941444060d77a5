#include "ui/journal/JournalSection.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QVBoxLayout>

HeroCard* journalSection(const QString& title, const QString& subtitle, QWidget* parent)
{
    auto* card = new HeroCard(parent);
    card->column()->addWidget(new V3Text(title, 14, QFont::DemiBold, V3::fg, card));
    if (!subtitle.isEmpty()) card->column()->addWidget(new V3Text(subtitle, 11, QFont::Normal, V3::fgMute, card));
    card->column()->addSpacing(6);
    return card;
}

const DynamicColor& toneColour(MetricTone tone)
{
    switch (tone) {
    case MetricTone::pos:
        return V3::match;
    case MetricTone::neg:
        return V3::alert;
    case MetricTone::neutral:
        break;
    }
    return V3::fg;
}

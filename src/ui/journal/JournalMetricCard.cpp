#include "ui/journal/JournalMetricCard.h"

#include "ui/HeroCard.h"
#include "ui/journal/JournalSection.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QPainter>

JournalMetricCard::JournalMetricCard(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(sizeHint().height());
}

QColor JournalMetricCard::toneColour(MetricTone tone, const QWidget* widget)
{
    return ::toneColour(tone).resolve(widget);
}

void JournalMetricCard::setFigure(const MetricFigure& figure)
{
    shown = figure;
    setAccessibleName(figure.label);
    setAccessibleDescription(figure.value);
    update();
}

void JournalMetricCard::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgCard.resolve(this));
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), HeroCard::radius, HeroCard::radius);
    const QRectF inner = QRectF(rect()).adjusted(14, 10, -14, -10);
    p.setFont(KitPaint::font(11, QFont::DemiBold));
    p.setPen(V3::fgMute.resolve(this));
    p.drawText(inner, Qt::AlignLeft | Qt::AlignTop, shown.label);
    QFont value = KitPaint::font(valueSize, QFont::DemiBold);
    // A long amount shrinks to fit the card rather than being cut.
    const double fits = QFontMetricsF(value).horizontalAdvance(shown.value);
    if (fits > inner.width() && fits > 0) value.setPixelSize(std::max(10, int(valueSize * inner.width() / fits)));
    p.setFont(value);
    p.setPen(toneColour(shown.tone, this));
    p.drawText(inner.adjusted(0, 16, 0, -subHeight), Qt::AlignLeft | Qt::AlignVCenter, shown.value);
    // Up to two lines under the value; a hint longer than that wraps there and is cut.
    p.setFont(KitPaint::font(10));
    p.setPen(V3::fgFaint.resolve(this));
    p.drawText(QRectF(inner.left(), inner.bottom() - subHeight, inner.width(), subHeight),
        Qt::AlignLeft | Qt::AlignBottom | Qt::TextWordWrap, shown.sub);
}

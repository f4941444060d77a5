#include "ui/HeroCard.h"

#include "ui/kit/V3.h"

#include <QPainter>
#include <QVBoxLayout>

HeroCard::HeroCard(QWidget* parent)
    : QWidget(parent)
{
    content = new QVBoxLayout(this);
    content->setContentsMargins(padding, padding, padding, padding);
    content->setSpacing(6);
}

void HeroCard::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(V3::lineSoft.resolve(this), 0.5));
    p.setBrush(V3::bgCard.resolve(this));
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
}

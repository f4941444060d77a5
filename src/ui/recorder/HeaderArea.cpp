#include "ui/recorder/HeaderArea.h"

#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QVBoxLayout>

HeaderArea::HeaderArea(const QString& title, const QString& subtitle, QWidget* parent)
    : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(36, 26, 36, 10);
    column->setSpacing(4);
    column->addWidget(new V3Text(title, 32, QFont::Bold, V3::fg, this));
    column->addWidget(new V3Text(subtitle, 13, QFont::Normal, V3::fgMute, this));
}

#include "ui/recorder/ChipsRow.h"

#include <QEvent>

#include <algorithm>

ChipsRow::ChipsRow(QWidget* parent)
    : QWidget(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void ChipsRow::addWidget(QWidget* widget)
{
    widget->setParent(this);
    items.push_back(widget);
    updateGeometry();
}

int ChipsRow::arrange(int width, bool place) const
{
    int x = 0;
    int y = 0;
    int lineHeight = 0;
    for (QWidget* w : items) {
        if (w->isHidden()) continue;
        const QSize size = w->sizeHint();
        if (x > 0 && x + size.width() > width) {
            x = 0;
            y += lineHeight + spacing / 2;
            lineHeight = 0;
        }
        if (place) w->setGeometry(x, y, size.width(), size.height());
        x += size.width() + spacing;
        lineHeight = std::max(lineHeight, size.height());
    }
    return y + lineHeight;
}

QSize ChipsRow::sizeHint() const
{
    int width = 0;
    for (QWidget* w : items)
        if (!w->isHidden()) width += w->sizeHint().width() + spacing;
    return { std::max(0, width - spacing), arrange(1 << 20, false) };
}

QSize ChipsRow::minimumSizeHint() const
{
    int width = 0;
    for (QWidget* w : items)
        if (!w->isHidden()) width = std::max(width, w->sizeHint().width());
    // As high as one line: the height at a given width is heightForWidth's.
    return { width, sizeHint().height() };
}

int ChipsRow::heightForWidth(int width) const
{
    return arrange(width, false);
}

void ChipsRow::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    arrange(width(), true);
}

bool ChipsRow::event(QEvent* event)
{
    // A chip that changed its text or was shown or hidden moves the others.
    if (event->type() == QEvent::LayoutRequest) {
        updateGeometry();
        arrange(width(), true);
    }
    return QWidget::event(event);
}

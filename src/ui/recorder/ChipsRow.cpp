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
    // Each line's widgets are centred on the line, the tallest setting its height.
    std::vector<std::pair<QWidget*, QSize>> line;
    int y = 0;
    auto finishLine = [&] {
        int height = 0;
        for (const auto& [w, size] : line)
            height = std::max(height, size.height());
        int x = 0;
        for (const auto& [w, size] : line) {
            if (place) w->setGeometry(x, y + (height - size.height()) / 2, size.width(), size.height());
            x += size.width() + spacing;
        }
        line.clear();
        return height;
    };
    int x = 0;
    for (QWidget* w : items) {
        if (w->isHidden()) continue;
        const QSize size = w->sizeHint();
        if (x > 0 && x + size.width() > width) {
            y += finishLine() + spacing / 2;
            x = 0;
        }
        line.emplace_back(w, size);
        x += size.width() + spacing;
    }
    return y + finishLine();
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

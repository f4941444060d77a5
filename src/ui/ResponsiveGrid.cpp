#include "ui/ResponsiveGrid.h"

#include <QGridLayout>
#include <QResizeEvent>

ResponsiveGrid::ResponsiveGrid(int columns, int minimumItemWidth, QWidget* parent)
    : QWidget(parent)
    , grid(new QGridLayout(this))
    , maxColumns(columns)
    , itemWidth(minimumItemWidth)
{
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(10);
}

void ResponsiveGrid::addItem(QWidget* item)
{
    items.push_back(item);
    arrange(shownColumns > 0 ? shownColumns : maxColumns);
}

void ResponsiveGrid::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int spacing = grid->horizontalSpacing();
    int columns = maxColumns;
    while (columns > 1 && columns * itemWidth + (columns - 1) * spacing > event->size().width())
        // Halving keeps rows of four as two by two rather than three and one.
        columns = columns % 2 == 0 ? columns / 2 : columns - 1;
    if (columns != shownColumns) arrange(columns);
}

void ResponsiveGrid::arrange(int columns)
{
    shownColumns = columns;
    for (QWidget* item : items)
        grid->removeWidget(item);
    for (int column = 0; column < grid->columnCount(); ++column)
        grid->setColumnStretch(column, 0);
    for (size_t i = 0; i < items.size(); ++i)
        grid->addWidget(items[i], int(i) / columns, int(i) % columns);
    for (int column = 0; column < columns; ++column)
        grid->setColumnStretch(column, 1);
    // Fewer columns make more rows: the layout around must learn the new height, or it squeezes the
    // rows into the old one.
    updateGeometry();
}

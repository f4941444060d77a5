#pragma once

#include <QWidget>

#include <vector>

class QGridLayout;

// Widgets in as many equal columns as fit: `columns` when each can have `minimumItemWidth`, fewer
// (down to one) on a narrow window, so cards wrap instead of being squeezed.
class ResponsiveGrid : public QWidget {
public:
    ResponsiveGrid(int columns, int minimumItemWidth, QWidget* parent = nullptr);

    void addItem(QWidget* item);
    int columnCount() const { return shownColumns; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void arrange(int columns);

    QGridLayout* grid;
    std::vector<QWidget*> items;
    int maxColumns;
    int itemWidth;
    int shownColumns = 0;
};

#pragma once

#include <QAbstractScrollArea>
#include <QHash>
#include <QList>

#include <functional>
#include <vector>

class ClipCard;
class QTimer;

// A scrolling grid of as many equal columns as fit (each at least minimumColumnWidth wide), which
// makes card widgets only for the rows in view and hands them their items as the user scrolls, so
// that thousands of items cost no more than a screenful. One item may be taller than the rest (a
// card with its journal panel open); its row grows with it.
//
// The owner says how many items there are, which one is tall, and how to make and fill a card.
class ClipGrid : public QAbstractScrollArea {
    Q_OBJECT
public:
    static constexpr int minimumColumnWidth = 240;
    static constexpr int spacing = 14;
    // Beside the columns; a narrow window keeps less, so that one card still fits.
    static constexpr int margin = 36;
    static constexpr int narrowMargin = 12;
    static constexpr int topMargin = 8;
    static constexpr int bottomMargin = 28;
    // How long the view must rest before the cards in it ask for their thumbnails.
    static constexpr int settleMilliseconds = 120;

    ClipGrid(std::function<ClipCard*(QWidget* parent)> makeCard, std::function<void(ClipCard*, int item)> bindCard,
        QWidget* parent = nullptr);

    // Forgets which card held which item and lays the grid out again.
    void setItems(int count, int tallItem);
    // The same items, with another one tall (-1: none); the cards keep their items.
    void setTallItem(int item);
    int itemCount() const { return count; }
    int columnCount() const { return columns; }
    // The cards in view, with the item each holds.
    const QHash<int, ClipCard*>& visibleCards() const { return shown; }
    // The card that holds `item`, after scrolling it into view.
    ClipCard* scrollTo(int item);
    // The first and one past the last item of the rows in view, plus `extraRows` on either side.
    std::pair<int, int> itemsNear(int extraRows) const;

signals:
    // The view has rested for settleMilliseconds after a scroll, a resize or new items.
    void settled();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    bool viewportEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void layoutRows();
    void placeCards();
    int rowTop(int row) const;
    int rowAt(int y) const;
    int rowCount() const;
    int sideMargin() const;
    void styleScrollBar();

    std::function<ClipCard*(QWidget*)> makeCard;
    std::function<void(ClipCard*, int)> bindCard;
    int count = 0;
    int tall = -1;
    int columns = 1;
    int columnWidth = minimumColumnWidth;
    int rowHeight = 0;
    int tallExtra = 0;
    QHash<int, ClipCard*> shown;
    std::vector<ClipCard*> spare;
    QTimer* settleTimer;
};

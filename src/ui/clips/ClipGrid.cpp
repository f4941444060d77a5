#include "ui/clips/ClipGrid.h"

#include "ui/clips/ClipCard.h"
#include "ui/kit/Appearance.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>

ClipGrid::ClipGrid(std::function<ClipCard*(QWidget*)> make, std::function<void(ClipCard*, int)> bind, QWidget* parent)
    : QAbstractScrollArea(parent)
    , makeCard(std::move(make))
    , bindCard(std::move(bind))
    , settleTimer(new QTimer(this))
{
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
    verticalScrollBar()->setSingleStep(40);
    styleScrollBar();
    settleTimer->setSingleShot(true);
    settleTimer->setInterval(settleMilliseconds);
    connect(settleTimer, &QTimer::timeout, this, &ClipGrid::settled);
}

void ClipGrid::setTallItem(int item)
{
    if (item == tall) return;
    tall = item;
    layoutRows();
}

void ClipGrid::setItems(int itemCount, int tallItem)
{
    count = itemCount;
    tall = tallItem;
    for (ClipCard* card : std::as_const(shown)) {
        card->hide();
        spare.push_back(card);
    }
    shown.clear();
    layoutRows();
}

int ClipGrid::rowCount() const
{
    return (count + columns - 1) / columns;
}

int ClipGrid::sideMargin() const
{
    return viewport()->width() < 2 * minimumColumnWidth ? narrowMargin : margin;
}

int ClipGrid::rowTop(int row) const
{
    const int tallRow = tall >= 0 ? tall / columns : -1;
    return topMargin + row * (rowHeight + spacing) + (tallRow >= 0 && row > tallRow ? tallExtra : 0);
}

int ClipGrid::rowAt(int y) const
{
    // Rows are equal but for the tall one: below it, every row stands lower by its extra height.
    const int tallRow = tall >= 0 ? tall / columns : -1;
    const int below = tallRow >= 0 && y >= rowTop(tallRow + 1) ? tallExtra : 0;
    const int row = (y - topMargin - below) / (rowHeight + spacing);
    return std::clamp(row, 0, std::max(0, rowCount() - 1));
}

void ClipGrid::layoutRows()
{
    const int available = std::max(1, viewport()->width() - 2 * sideMargin());
    columns = std::max(1, (available + spacing) / (minimumColumnWidth + spacing));
    columnWidth = (available - (columns - 1) * spacing) / columns;
    rowHeight = ClipCard::heightFor(columnWidth, false);
    tallExtra = ClipCard::heightFor(columnWidth, true) - rowHeight;
    const int rows = rowCount();
    const bool lastRowTall = tall >= 0 && tall / columns == rows - 1;
    const int contentHeight
        = rows == 0 ? 0 : rowTop(rows - 1) + rowHeight + (lastRowTall ? tallExtra : 0) + bottomMargin;
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, std::max(0, contentHeight - viewport()->height()));
    placeCards();
    settleTimer->start();
}

std::pair<int, int> ClipGrid::itemsNear(int extraRows) const
{
    if (count == 0) return { 0, 0 };
    const int top = verticalScrollBar()->value();
    const int first = std::max(0, rowAt(top) - extraRows);
    const int last = std::min(rowCount() - 1, rowAt(top + viewport()->height()) + extraRows);
    return { first * columns, std::min(count, (last + 1) * columns) };
}

void ClipGrid::placeCards()
{
    const auto [first, end] = itemsNear(0);
    // Cards that left the view go back to the spares first, so that the ones coming in reuse them.
    for (auto it = shown.begin(); it != shown.end();) {
        if (it.key() >= first && it.key() < end) {
            ++it;
            continue;
        }
        it.value()->hide();
        spare.push_back(it.value());
        it = shown.erase(it);
    }
    const int top = verticalScrollBar()->value();
    for (int item = first; item < end; ++item) {
        ClipCard* card = shown.value(item);
        if (!card) {
            if (spare.empty()) {
                card = makeCard(viewport());
            } else {
                card = spare.back();
                spare.pop_back();
            }
            shown.insert(item, card);
            bindCard(card, item);
        }
        const int row = item / columns;
        const int column = item % columns;
        card->setGeometry(sideMargin() + column * (columnWidth + spacing), rowTop(row) - top, columnWidth,
            ClipCard::heightFor(columnWidth, item == tall));
        card->show();
    }
}

ClipCard* ClipGrid::scrollTo(int item)
{
    if (item < 0 || item >= count) return nullptr;
    const int row = item / columns;
    const int top = rowTop(row);
    const int bottom = top + ClipCard::heightFor(columnWidth, item == tall);
    QScrollBar* bar = verticalScrollBar();
    if (top < bar->value())
        bar->setValue(top - topMargin);
    else if (bottom > bar->value() + viewport()->height())
        bar->setValue(bottom - viewport()->height() + topMargin);
    placeCards();
    return shown.value(item);
}

void ClipGrid::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    layoutRows();
}

void ClipGrid::scrollContentsBy(int, int)
{
    placeCards();
    settleTimer->start();
}

void ClipGrid::styleScrollBar()
{
    // A thin bar in the kit's colours rather than the platform style's wide one with arrows.
    const Appearance a = appearanceOf(static_cast<const QWidget*>(nullptr));
    verticalScrollBar()->setStyleSheet(
        QStringLiteral("QScrollBar:vertical { width: 10px; background: transparent; margin: 2px 2px 2px 0; }"
                       "QScrollBar::handle:vertical { background: %1; border-radius: 4px; min-height: 32px; }"
                       "QScrollBar::handle:vertical:hover { background: %2; }"
                       "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
                       "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }")
            .arg(V3::line.resolve(a).name(), V3::fgDim.resolve(a).name()));
}

void ClipGrid::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange) styleScrollBar();
}

bool ClipGrid::viewportEvent(QEvent* event)
{
    // The cards paint themselves; the viewport has nothing of its own to draw.
    if (event->type() == QEvent::Paint) return true;
    return QAbstractScrollArea::viewportEvent(event);
}

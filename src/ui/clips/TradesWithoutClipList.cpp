#include "ui/clips/TradesWithoutClipList.h"

#include "ui/clips/ClipEdits.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QVBoxLayout>

TradesWithoutClipList::TradesWithoutClipList(QWidget* parent)
    : QWidget(parent)
{
    setAccessibleName(QStringLiteral("Trades without a clip"));
    column = new QVBoxLayout(this);
    column->setContentsMargins(0, 6, 0, 0);
    column->setSpacing(2);
    heading = new V3Text({}, 12, QFont::DemiBold, V3::fgMute, this);
    column->addWidget(heading);
    setVisible(false);
}

void TradesWithoutClipList::setTrades(const QList<ClipTrade>& trades)
{
    qDeleteAll(rows);
    rows.clear();
    setVisible(!trades.isEmpty());
    if (trades.isEmpty()) return;
    heading->setText(trades.size() == 1 ? QStringLiteral("1 trade without a clip")
                                        : QStringLiteral("%1 trades without a clip").arg(trades.size()));
    for (qsizetype i = 0; i < trades.size() && i < linesShown; ++i) {
        auto* row = new V3Text(ClipEdits::tradeLine(trades[i]), 12, QFont::Normal, V3::fg, this);
        column->addWidget(row);
        rows << row;
    }
    if (trades.size() > linesShown) {
        auto* more = new V3Text(
            QStringLiteral("and %1 more").arg(trades.size() - linesShown), 11, QFont::Normal, V3::fgFaint, this);
        column->addWidget(more);
        rows << more;
    }
}

QStringList TradesWithoutClipList::lines() const
{
    QStringList texts;
    for (const V3Text* row : rows)
        texts << row->text();
    return texts;
}

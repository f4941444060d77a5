#include "ui/journal/JournalStats.h"

#include "journal/ClipJournalStore.h"
#include "ui/ResponsiveGrid.h"
#include "ui/journal/JournalCharts.h"
#include "ui/journal/JournalFigures.h"
#include "ui/journal/JournalMetricCard.h"
#include "ui/journal/JournalSection.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Text.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

JournalStats::JournalStats(ClipJournalStore* journal, QWidget* parent)
    : QWidget(parent)
    , store(journal)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);

    auto* quant = journalSection(
        QStringLiteral("Quant snapshot"), QStringLiteral("Risk-adjusted return and capital efficiency"), this);
    auto* quantGrid = new ResponsiveGrid(4, 150, quant);
    for (int i = 0; i < 8; ++i) {
        tiles.push_back(new JournalMetricCard(quantGrid));
        quantGrid->addItem(tiles.back());
    }
    quant->column()->addWidget(quantGrid);
    column->addWidget(quant);

    auto* distribution = journalSection(
        QStringLiteral("Returns distribution"), QStringLiteral("Per-trade signed P&L — fat-tail check"), this);
    returns = new ReturnsHistogram(distribution);
    distribution->column()->addWidget(returns);
    column->addWidget(distribution);

    auto* streaks = journalSection(QStringLiteral("Streaks"), QStringLiteral("Consecutive wins / losses"), this);
    for (int i = 0; i < 3; ++i) {
        auto* row = new QHBoxLayout;
        auto* label = new V3Text({}, 13, QFont::Normal, V3::fgMute, streaks);
        auto* value = new V3Text({}, 13, QFont::DemiBold, V3::fg, streaks);
        row->addWidget(label);
        row->addStretch();
        row->addWidget(value);
        streaks->column()->addLayout(row);
        streakRows.emplace_back(label, value);
    }
    column->addWidget(streaks);

    auto* extremes = journalSection(QStringLiteral("Best vs. worst"), QStringLiteral("Peaks and pits"), this);
    auto* extremesGrid = new ResponsiveGrid(4, 150, extremes);
    for (int i = 0; i < 4; ++i) {
        tiles.push_back(new JournalMetricCard(extremesGrid));
        extremesGrid->addItem(tiles.back());
    }
    extremes->column()->addWidget(extremesGrid);
    column->addWidget(extremes);
    column->addStretch();

    connect(store, &ClipJournalStore::clipsChanged, this, &JournalStats::refresh);
    connect(store, &ClipJournalStore::displayUnitChanged, this, &JournalStats::refresh);
    connect(store, &ClipJournalStore::filterChanged, this, &JournalStats::refresh);
    refresh();
}

JournalMetricCard* JournalStats::tile(const QString& label) const
{
    for (JournalMetricCard* tile : tiles)
        if (tile->figure().label == label) return tile;
    return nullptr;
}

void JournalStats::refresh()
{
    const JournalMetrics m = store->metrics();
    const PnLUnit unit = store->displayUnit();
    std::vector<MetricFigure> figures = JournalFigures::quantTiles(m, unit);
    for (MetricFigure& extreme : JournalFigures::extremes(m, unit))
        figures.push_back(std::move(extreme));
    for (size_t i = 0; i < tiles.size() && i < figures.size(); ++i)
        tiles[i]->setFigure(figures[i]);
    const std::vector<MetricFigure> streaks = JournalFigures::streakRows(m);
    for (size_t i = 0; i < streakRows.size() && i < streaks.size(); ++i) {
        streakRows[i].first->setText(streaks[i].label);
        streakRows[i].second->setText(streaks[i].value);
        streakRows[i].second->setColour(toneColour(streaks[i].tone));
        streakRows[i].second->setAccessibleName(streaks[i].label);
    }
    returns->setValues(m.tradePnL(), unit);
}

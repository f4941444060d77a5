#pragma once

#include <QWidget>

#include <vector>

class ClipJournalStore;
class JournalMetricCard;
class ReturnsHistogram;
class V3Text;

// The journal in depth: the quant tiles, the distribution of per-trade results, the streaks and
// the best and worst trades and days. Follows every change of the clips or the unit.
class JournalStats : public QWidget {
    Q_OBJECT
public:
    explicit JournalStats(ClipJournalStore* store, QWidget* parent = nullptr);

    JournalMetricCard* tile(const QString& label) const;
    ReturnsHistogram* histogram() const { return returns; }

    void refresh();

private:
    ClipJournalStore* store;
    std::vector<JournalMetricCard*> tiles; // quant tiles, then best and worst
    std::vector<std::pair<V3Text*, V3Text*>> streakRows;
    ReturnsHistogram* returns;
};

#pragma once

#include "journal/MonteCarloEngine.h"
#include "ui/journal/JournalFigures.h"

#include <QWidget>

#include <optional>
#include <vector>

class ClipJournalStore;
class JournalMetricCard;
class MonteCarloFanChart;
class QSlider;
class SimulationRunner;
class V3Text;
class V3Toggle;

// What the next trades could do: the Monte Carlo controls, the equity fan and its figures, or,
// with fewer than five trades in the unit, an empty state saying what to do. The simulation runs
// off the main thread; the screen shows the result of the latest settings once it arrives.
class JournalSimulations : public QWidget {
    Q_OBJECT
public:
    explicit JournalSimulations(ClipJournalStore* store, QWidget* parent = nullptr);

    bool showsEmptyState() const;
    QSlider* horizonSlider() const { return sliders.at(0); }
    QSlider* pathsSlider() const { return sliders.at(1); }
    const JournalFigures::SimulationSettings& settings() const { return current; }
    const std::optional<MonteCarloEngine::Result>& result() const { return shown; }
    MonteCarloFanChart* fanChart() const { return fan; }
    JournalMetricCard* card(const QString& label) const;

    // Starts a run with the current settings and the store's trades.
    void recompute();

signals:
    // A result was shown.
    void resultShown();

private:
    struct Range {
        double min;
        double max;
        double step;
    };
    QSlider* addSlider(
        QWidget* owner, class QBoxLayout* into, const QString& label, Range range, double value, V3Text** valueText);
    void refresh();
    void showResult(const std::optional<MonteCarloEngine::Result>& result);
    void updateTexts();
    void updateSliderTexts();

    ClipJournalStore* store;
    SimulationRunner* runner;
    JournalFigures::SimulationSettings current;
    std::optional<MonteCarloEngine::Result> shown;
    bool shownTracksRuin = false;
    int tradeCount = 0; // in the viewed unit, as of the last change of the store
    QWidget* emptyState;
    QWidget* content;
    V3Text* bootstrapText;
    std::vector<QSlider*> sliders; // trades ahead, paths, starting equity, ruin threshold
    std::vector<V3Text*> sliderValues;
    V3Toggle* ruinSwitch;
    QWidget* ruinRow;
    MonteCarloFanChart* fan;
    std::vector<JournalMetricCard*> cards;
};

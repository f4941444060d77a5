#pragma once

#include "journal/JournalMetrics.h"
#include "journal/MonteCarloEngine.h"
#include "journal/PnLUnit.h"

#include <QString>

#include <optional>
#include <vector>

// The journal's figures as the screens show them: each metric's text, the words around it and the
// tone that colours it. The metrics compute, this only formats and picks the tone, so that the
// screens hold no rules of their own.
enum class MetricTone { pos, neg, neutral };

struct MetricFigure {
    QString label;
    QString value;
    QString sub; // the line under the value, or the hint of a stat tile
    MetricTone tone = MetricTone::neutral;
};

namespace JournalFigures {

// What an absent value shows.
extern const QString absent;

// The two rows of the Overview: the four headline cards, then the four quant cards.
std::vector<MetricFigure> overviewCards(const JournalMetrics& m, PnLUnit unit);
// "—", "3W" or "2L".
QString streakText(int current);
MetricTone streakTone(int current);
// The compass's caption, with and without a score.
QString compassCaption(bool hasScore);

// The Stats screen: its quant tiles, its streak rows and its best and worst.
std::vector<MetricFigure> quantTiles(const JournalMetrics& m, PnLUnit unit);
std::vector<MetricFigure> streakRows(const JournalMetrics& m);
std::vector<MetricFigure> extremes(const JournalMetrics& m, PnLUnit unit);

// The Simulations screen's cards over a result (absent: every value shows "—").
std::vector<MetricFigure> simulationCards(
    const std::optional<MonteCarloEngine::Result>& result, bool ruinTracked, PnLUnit unit);

// The simulation's controls and the engine's configuration they make.
struct SimulationSettings {
    double horizon = 50;
    double paths = 2000;
    double startingEquity = 0;
    double ruinOffset = -1000; // below the starting equity
    bool ruinEnabled = false;
    uint64_t seed = 1;
};
constexpr int minimumTradesToSimulate = 5;
MonteCarloEngine::Config simulationConfig(const SimulationSettings& s, std::vector<double> trades);

} // namespace JournalFigures

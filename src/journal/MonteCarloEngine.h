#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

// What the next trades could do, by bootstrap: the user's own per-trade results resampled with
// replacement over many paths, reported as percentile bands per step, the chances of profit and of
// ruin, and every final equity.
//
// Pure functions. A given seed gives the same result, bit for bit, on every machine and with any
// number of cores: the draws are SplitMix64 outputs in path-by-path, step-by-step order, however the
// work is split. simulate() uses the hardware's threads internally and returns when done; call it
// from any thread.
namespace MonteCarloEngine {

struct Config {
    std::vector<double> trades; // the sample to resample: the journal's tradePnL
    int64_t horizon = 0; // trades per path
    int64_t paths = 0;
    double startingEquity = 0;
    std::optional<double> ruinThreshold; // an absolute equity level; absent: ruin is not tracked
    std::optional<uint64_t> seed; // absent: a seed from the operating system's random source
    std::stop_token stop {}; // a run asked to stop ends within a few milliseconds and gives nothing
};

struct Result {
    struct Bands {
        double p05;
        double p25;
        double p50;
        double p75;
        double p95;
        friend bool operator==(const Bands&, const Bands&) = default;
    };
    struct Range {
        double min;
        double max;
        friend bool operator==(const Range&, const Range&) = default;
    };

    std::vector<Bands> bands; // horizon + 1 elements, index 0 being the start
    std::optional<double> ruinProbability; // absent when ruin is not tracked
    double profitProbability = 0; // share of paths that finish strictly above the start
    std::vector<double> finalEquities; // one per path, ascending
    Range yRange { 0, 0 }; // smallest p05 to largest p95: the outer band, not the extreme paths
};

// A seed of 0 is replaced by this one.
constexpr uint64_t zeroSeedReplacement = 0xDEADBEEFCAFEBABEULL;

// The most draws (paths × horizon) one run makes: about two thirds of a second on the two cores of
// the development machine when it is otherwise idle (journal_bench's BM_MonteCarloAtTheRunLimit),
// ten times the Simulations screen's largest run. The command line refuses more, and so does
// simulate(); without the bound a run of the command line could take half an hour.
constexpr int64_t maxDraws = 50'000'000;

// Absent when there are no trades, horizon or paths is below 1, paths × horizon exceeds maxDraws,
// or the run was asked to stop.
std::optional<Result> simulate(const Config& config);

// Linear interpolation between the closest ranks of an ascending list: 0 for an empty list.
double percentile(std::span<const double> sorted, double q);

} // namespace MonteCarloEngine

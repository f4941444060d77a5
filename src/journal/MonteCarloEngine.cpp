#include "journal/MonteCarloEngine.h"

#include "journal/SeededRNG.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <cmath>
#include <random>
#include <thread>

namespace MonteCarloEngine {

namespace {

__extension__ typedef unsigned __int128 UInt128;

constexpr std::array<double, 5> quantiles { 0.05, 0.25, 0.5, 0.75, 0.95 };

// The one interpolation formula, shared by percentile() and the selection below so that both
// give the same bits.
double interpolate(double low, double high, double t)
{
    return (1 - t) * low + t * high;
}

// Where each quantile of a column of n values falls: the ranks to read and the weight between.
struct Rank {
    size_t lo;
    size_t hi;
    double t;
};

Rank rankOf(size_t n, double q)
{
    const double pos = q * static_cast<double>(n - 1);
    const double lo = std::floor(pos);
    return { static_cast<size_t>(lo), static_cast<size_t>(std::ceil(pos)), pos - lo };
}

// Puts the values of the given ascending, distinct ranks of [begin, end) in their sorted places,
// as a full sort would, without sorting the rest: each selection splits the range, and the ranks
// on either side are found in their half only.
void selectRanks(double* column, size_t begin, size_t end, const size_t* ranks, size_t count)
{
    if (count == 0 || end - begin < 2) return;
    const size_t middle = count / 2;
    const size_t k = ranks[middle];
    if (k == begin) {
        std::iter_swap(column + begin, std::min_element(column + begin, column + end));
    } else if (k == end - 1) {
        std::iter_swap(column + k, std::max_element(column + begin, column + end));
    } else {
        std::nth_element(column + begin, column + k, column + end);
    }
    selectRanks(column, begin, k, ranks, middle);
    selectRanks(column, k + 1, end, ranks + middle + 1, count - middle - 1);
}

// The five percentiles of one step's column of equities, as a sort and percentile() would give
// them. Reorders the column.
class BandPlan {
public:
    explicit BandPlan(size_t n)
        : n(n)
    {
        for (size_t i = 0; i < quantiles.size(); ++i) {
            places[i] = rankOf(n, quantiles[i]);
            needed[count++] = places[i].lo;
            needed[count++] = places[i].hi;
        }
        std::sort(needed.begin(), needed.begin() + count);
        count = static_cast<size_t>(std::unique(needed.begin(), needed.begin() + count) - needed.begin());
    }

    Result::Bands bandsOf(double* column) const
    {
        selectRanks(column, 0, n, needed.data(), count);
        std::array<double, 5> values {};
        for (size_t i = 0; i < quantiles.size(); ++i) {
            const Rank& r = places[i];
            values[i] = r.lo == r.hi ? column[r.lo] : interpolate(column[r.lo], column[r.hi], r.t);
        }
        return { values[0], values[1], values[2], values[3], values[4] };
    }

private:
    size_t n;
    std::array<Rank, 5> places {};
    std::array<size_t, 10> needed {};
    size_t count = 0;
};

// The paths are walked step by step across all of them, a chunk of steps at a time: the chunk's
// columns are then complete and their percentiles can be taken while the rest is still to come.
// Only the current equity of each path and one chunk of columns are held, never the whole
// matrix. The threads split the paths for the walk and the columns for the percentiles.
//
// Every path draws from the generator's stream at its own counter: output k of a seed is
// mix(seed + k × gamma), so path p can start at the output that a sequential run would reach
// when it got to p. `starts` holds that position for every path.
class Simulation {
public:
    Simulation(const Config& config, uint64_t seed)
        : config(config)
        , seed(seed)
        , paths(static_cast<size_t>(config.paths))
        , horizon(static_cast<size_t>(config.horizon))
        , tradeCount(config.trades.size())
        , threshold((0 - static_cast<uint64_t>(tradeCount)) % static_cast<uint64_t>(tradeCount))
        , plan(paths)
    {
        const unsigned hardware = std::max(1U, std::thread::hardware_concurrency());
        // Small runs are over before a thread would have started.
        threads = paths * horizon < 20'000 ? 1 : std::min<size_t>({ hardware, 8, paths });
        constexpr size_t chunkBytes = 4 << 20;
        chunk = std::clamp<size_t>(chunkBytes / (sizeof(double) * paths), 1, horizon + 1);
    }

    enum class Ran {
        done,
        // Some path had to redraw, which moves the start of every later path: the caller then
        // runs again with exact starts.
        redrawn,
        stopped,
    };

    // Runs every path from the given stream positions.
    Ran run(const std::vector<uint64_t>& starts)
    {
        counters = starts;
        equity.assign(paths, config.startingEquity);
        ruined.assign(paths, 0);
        bands.assign(horizon + 1, {});
        columns.resize(chunk * paths);

        std::barrier sync(static_cast<std::ptrdiff_t>(threads));
        // Read by the first thread once per chunk, before the barrier that all pass before they
        // look: every thread stops after the same chunk, and none waits at a barrier alone.
        std::atomic<bool> stopping { false };
        auto work = [&](size_t t) {
            const size_t pathBegin = paths * t / threads;
            const size_t pathEnd = paths * (t + 1) / threads;
            for (size_t first = 0; first <= horizon; first += chunk) {
                const size_t last = std::min(first + chunk, horizon + 1);
                walk(pathBegin, pathEnd, first, last);
                sync.arrive_and_wait();
                const size_t width = last - first;
                for (size_t j = width * t / threads; j < width * (t + 1) / threads; ++j) {
                    bands[first + j] = plan.bandsOf(columns.data() + j * paths);
                }
                if (t == 0 && config.stop.stop_requested()) stopping.store(true, std::memory_order_relaxed);
                sync.arrive_and_wait();
                if (stopping.load(std::memory_order_relaxed)) return;
            }
        };
        {
            std::vector<std::jthread> helpers;
            for (size_t t = 1; t < threads; ++t)
                helpers.emplace_back(work, t);
            work(0);
        }
        if (stopping) return Ran::stopped;
        for (size_t p = 0; p < paths; ++p) {
            if (counters[p] - starts[p] != horizon) return Ran::redrawn;
        }
        return Ran::done;
    }

    // What a sequential run gives: path p starts where path p - 1's draws, redraws included,
    // ended.
    std::vector<uint64_t> exactStarts() const
    {
        std::vector<uint64_t> starts(paths);
        uint64_t counter = 0;
        for (size_t p = 0; p < paths; ++p) {
            starts[p] = counter;
            for (size_t s = 1; s <= horizon; ++s)
                draw(counter);
        }
        return starts;
    }

    std::vector<uint64_t> speculativeStarts() const
    {
        std::vector<uint64_t> starts(paths);
        for (size_t p = 0; p < paths; ++p)
            starts[p] = static_cast<uint64_t>(p) * horizon;
        return starts;
    }

    Result result() const
    {
        Result result;
        result.bands = bands;
        result.finalEquities = equity;
        std::sort(result.finalEquities.begin(), result.finalEquities.end());
        size_t profits = 0;
        size_t ruins = 0;
        for (size_t p = 0; p < paths; ++p) {
            if (equity[p] > config.startingEquity) ++profits;
            if (ruined[p]) ++ruins;
        }
        result.profitProbability = static_cast<double>(profits) / static_cast<double>(paths);
        if (config.ruinThreshold) {
            result.ruinProbability = static_cast<double>(ruins) / static_cast<double>(paths);
        }
        result.yRange = { bands.front().p05, bands.front().p95 };
        for (const Result::Bands& b : bands) {
            result.yRange.min = std::min(result.yRange.min, b.p05);
            result.yRange.max = std::max(result.yRange.max, b.p95);
        }
        return result;
    }

private:
    // The next index of the stream at `counter`, by Lemire's method as SeededRNG does it.
    uint64_t draw(uint64_t& counter) const
    {
        const auto bound = static_cast<uint64_t>(tradeCount);
        for (;;) {
            ++counter;
            const UInt128 product = static_cast<UInt128>(SeededRNG::mix(seed + counter * SeededRNG::gamma)) * bound;
            const auto low = static_cast<uint64_t>(product);
            // threshold < bound, so the division-free test settles all but a vanishing few.
            if (low >= bound || low >= threshold) return static_cast<uint64_t>(product >> 64);
        }
    }

    // Steps [first, last) of paths [pathBegin, pathEnd), into the chunk's columns.
    void walk(size_t pathBegin, size_t pathEnd, size_t first, size_t last)
    {
        const double* trades = config.trades.data();
        const bool tracksRuin = config.ruinThreshold.has_value();
        const double ruinLevel = config.ruinThreshold.value_or(0);
        for (size_t s = first; s < last; ++s) {
            double* column = columns.data() + (s - first) * paths;
            for (size_t p = pathBegin; p < pathEnd; ++p) {
                if (s > 0) {
                    equity[p] += trades[draw(counters[p])];
                    // Tested at every step: a path that dips to the line and recovers is ruined.
                    if (tracksRuin && equity[p] <= ruinLevel) ruined[p] = 1;
                }
                column[p] = equity[p];
            }
        }
    }

    const Config& config;
    uint64_t seed;
    size_t paths;
    size_t horizon;
    size_t tradeCount;
    uint64_t threshold;
    BandPlan plan;
    size_t threads = 1;
    size_t chunk = 1;

    std::vector<uint64_t> counters;
    std::vector<double> equity;
    std::vector<unsigned char> ruined;
    std::vector<double> columns;
    std::vector<Result::Bands> bands;
};

uint64_t systemSeed()
{
    std::random_device device;
    return (static_cast<uint64_t>(device()) << 32) ^ device();
}

} // namespace

double percentile(std::span<const double> sorted, double q)
{
    if (sorted.empty()) return 0;
    if (sorted.size() == 1) return sorted[0];
    const Rank r = rankOf(sorted.size(), q);
    if (r.lo == r.hi) return sorted[r.lo];
    return interpolate(sorted[r.lo], sorted[r.hi], r.t);
}

std::optional<Result> simulate(const Config& config)
{
    if (config.trades.empty() || config.horizon < 1 || config.paths < 1) return std::nullopt;
    if (config.paths > maxDraws / config.horizon) return std::nullopt;
    uint64_t seed = config.seed ? *config.seed : systemSeed();
    if (seed == 0) seed = zeroSeedReplacement;

    Simulation simulation(config, seed);
    // Redraws are so rare (a chance below trades / 2^64 per draw) that every path is first assumed
    // to start where a run without them would start; if one happened, the run is made again from
    // the exact positions.
    Simulation::Ran ran = simulation.run(simulation.speculativeStarts());
    if (ran == Simulation::Ran::redrawn) ran = simulation.run(simulation.exactStarts());
    if (ran == Simulation::Ran::stopped) return std::nullopt;
    return simulation.result();
}

} // namespace MonteCarloEngine

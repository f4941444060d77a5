#pragma once

#include "journal/MonteCarloEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

// The simulation as plainly as it can be written: its own SplitMix64 and Lemire draw, every path
// held whole, every column sorted in full. The engine must give the same bits; the tests check that
// and the benchmark measures against it.
namespace PlainMonteCarlo {

struct Generator {
    uint64_t state;
    uint64_t next()
    {
        state += 0x9E3779B97F4A7C15ULL;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t n)
    {
        __extension__ typedef unsigned __int128 Wide;
        Wide m = static_cast<Wide>(next()) * n;
        if (static_cast<uint64_t>(m) < n) {
            const uint64_t t = (0 - n) % n;
            while (static_cast<uint64_t>(m) < t)
                m = static_cast<Wide>(next()) * n;
        }
        return static_cast<uint64_t>(m >> 64);
    }
};

inline double percentile(const std::vector<double>& sorted, double q)
{
    if (sorted.empty()) return 0;
    if (sorted.size() == 1) return sorted[0];
    const double pos = q * static_cast<double>(sorted.size() - 1);
    const auto lo = static_cast<size_t>(std::floor(pos));
    const auto hi = static_cast<size_t>(std::ceil(pos));
    if (lo == hi) return sorted[lo];
    const double t = pos - static_cast<double>(lo);
    return (1 - t) * sorted[lo] + t * sorted[hi];
}

inline MonteCarloEngine::Result simulate(const MonteCarloEngine::Config& c)
{
    Generator rng { *c.seed == 0 ? 0xDEADBEEFCAFEBABEULL : *c.seed };
    const auto paths = static_cast<size_t>(c.paths);
    const auto horizon = static_cast<size_t>(c.horizon);
    std::vector<std::vector<double>> rows(paths, std::vector<double>(horizon + 1, c.startingEquity));
    int ruins = 0;
    int profits = 0;
    for (auto& row : rows) {
        double equity = c.startingEquity;
        bool hit = false;
        for (size_t s = 1; s <= horizon; ++s) {
            equity += c.trades[rng.below(c.trades.size())];
            row[s] = equity;
            if (c.ruinThreshold && equity <= *c.ruinThreshold) hit = true;
        }
        ruins += hit;
        profits += equity > c.startingEquity;
    }
    MonteCarloEngine::Result r;
    std::vector<double> column(paths);
    for (size_t s = 0; s <= horizon; ++s) {
        for (size_t p = 0; p < paths; ++p)
            column[p] = rows[p][s];
        std::sort(column.begin(), column.end());
        r.bands.push_back({ percentile(column, 0.05), percentile(column, 0.25), percentile(column, 0.5),
            percentile(column, 0.75), percentile(column, 0.95) });
    }
    for (const auto& row : rows)
        r.finalEquities.push_back(row.back());
    std::sort(r.finalEquities.begin(), r.finalEquities.end());
    r.yRange = { r.bands[0].p05, r.bands[0].p95 };
    for (const auto& b : r.bands)
        r.yRange = { std::min(r.yRange.min, b.p05), std::max(r.yRange.max, b.p95) };
    if (c.ruinThreshold) r.ruinProbability = static_cast<double>(ruins) / static_cast<double>(paths);
    r.profitProbability = static_cast<double>(profits) / static_cast<double>(paths);
    return r;
}

} // namespace PlainMonteCarlo

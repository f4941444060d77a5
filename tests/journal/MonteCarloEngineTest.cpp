#include "journal/MonteCarloEngine.h"

#include "journal/PlainMonteCarlo.h"
#include "journal/SeededRNG.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stop_token>
#include <thread>

using MonteCarloEngine::Config;
using MonteCarloEngine::Result;

namespace {

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

void expectIdentical(const Result& a, const Result& b)
{
    ASSERT_EQ(a.bands.size(), b.bands.size());
    for (size_t s = 0; s < a.bands.size(); ++s) {
        const auto& x = a.bands[s];
        const auto& y = b.bands[s];
        EXPECT_TRUE(sameBits(x.p05, y.p05) && sameBits(x.p25, y.p25) && sameBits(x.p50, y.p50) && sameBits(x.p75, y.p75)
            && sameBits(x.p95, y.p95))
            << "step " << s;
    }
    EXPECT_EQ(a.finalEquities, b.finalEquities);
    EXPECT_EQ(a.ruinProbability, b.ruinProbability);
    EXPECT_EQ(a.profitProbability, b.profitProbability);
    EXPECT_EQ(a.yRange, b.yRange);
}

// The inverse of SplitMix64's output function, to find the state that yields a given output.
uint64_t unmix(uint64_t z)
{
    const auto inverse = [](uint64_t a) { // of an odd number modulo 2^64, by Newton's iteration
        uint64_t x = a;
        for (int i = 0; i < 6; ++i)
            x *= 2 - a * x;
        return x;
    };
    z ^= (z >> 31) ^ (z >> 62);
    z *= inverse(0x94D049BB133111EBULL);
    z ^= (z >> 27) ^ (z >> 54);
    z *= inverse(0xBF58476D1CE4E5B9ULL);
    z ^= (z >> 30) ^ (z >> 60);
    return z;
}

std::vector<double> sampleTrades()
{
    // Uneven amounts, so that sums differ in their last bits depending on the draws.
    return { 12.5, -7.3, 3.1, -0.45, 21.75, -15.2, 0.1, 8.8, -3.3 };
}

} // namespace

TEST(MonteCarloEngine, SplitMix64AndTheBoundedDraw)
{
    // SplitMix64's published first outputs for seed 1.
    SeededRNG rng { 1 };
    EXPECT_EQ(rng.next(), 0x910A2DEC89025CC1ULL);
    EXPECT_EQ(rng.next(), 0xBEEB8DA1658EEC67ULL);
    EXPECT_EQ(rng.next(), 0xF893A2EEFB32555EULL);
    // Of two trades the first draw takes the top bit of the first output.
    EXPECT_EQ((SeededRNG { 1 }).next(2), 1u);

    // An output of 0 times 3 leaves a low word of 0, below 2^64 mod 3 = 1: it is redrawn.
    const uint64_t zeroFirst = unmix(0) - SeededRNG::gamma;
    SeededRNG probe { zeroFirst };
    ASSERT_EQ(probe.next(), 0u);
    const uint64_t second = probe.next();
    __extension__ typedef unsigned __int128 Wide;
    EXPECT_EQ((SeededRNG { zeroFirst }).next(3), static_cast<uint64_t>((static_cast<Wide>(second) * 3) >> 64));
}

TEST(MonteCarloEngine, SmallSimulationMatchesIndependentlyComputedBands)
{
    // Computed outside the engine with arbitrary-precision integers for the generator and the
    // draw, and the same interpolation.
    Config c { { 1.0, -1.0, 2.5, -3.0, 0.5 }, 3, 4, 100.0, 99.0, 1 };
    const auto r = MonteCarloEngine::simulate(c);
    ASSERT_TRUE(r);
    const std::vector<Result::Bands> expected {
        { 100.0, 100.0, 100.0, 100.0, 100.0 },
        { 97.525, 99.625, 101.5, 102.5, 102.5 },
        { 99.5, 99.5, 101.25, 103.5, 104.69999999999999 },
        { 97.02499999999999, 99.125, 101.0, 102.0, 102.0 },
    };
    EXPECT_EQ(r->bands, expected);
    EXPECT_EQ(r->finalEquities, (std::vector<double> { 96.5, 100.0, 102.0, 102.0 }));
    EXPECT_EQ(r->ruinProbability, 0.25);
    EXPECT_EQ(r->profitProbability, 0.5); // the path ending exactly at 100 is no profit
    EXPECT_EQ(r->yRange, (Result::Range { 97.02499999999999, 104.69999999999999 }));

    c.ruinThreshold.reset();
    EXPECT_FALSE(MonteCarloEngine::simulate(c)->ruinProbability);
    EXPECT_EQ(MonteCarloEngine::simulate(c)->profitProbability, 0.5);
}

TEST(MonteCarloEngine, IdenticalToTheStraightforwardAlgorithm)
{
    const std::vector<Config> configs {
        { sampleTrades(), 50, 2000, 0, -40.0, 1 }, // the screen's defaults, split over threads
        { sampleTrades(), 500, 203, 1000, 950.0, 77 }, // more steps than one chunk holds
        { sampleTrades(), 7, 1, -5, std::nullopt, 3 },
        { { 4.0 }, 10, 9, 0, std::nullopt, 0xDEADBEEFCAFEBABEULL },
        { sampleTrades(), 5, 10'000, 0, std::nullopt, 12345 },
    };
    for (const Config& c : configs) {
        const auto fast = MonteCarloEngine::simulate(c);
        ASSERT_TRUE(fast);
        expectIdentical(*fast, PlainMonteCarlo::simulate(c));
    }
}

TEST(MonteCarloEngine, ARedrawShiftsEveryLaterPathAsInASequentialRun)
{
    // Three trades and a seed whose 1234th output is 0: that draw is redrawn, so every path after
    // it draws one output later than a count of paths × horizon would say.
    const uint64_t redrawAt = 1234;
    const uint64_t seed = unmix(0) - redrawAt * SeededRNG::gamma;
    const Config c { { 1.0, -2.0, 4.0 }, 50, 600, 0, -10.0, seed };
    const auto fast = MonteCarloEngine::simulate(c);
    ASSERT_TRUE(fast);
    expectIdentical(*fast, PlainMonteCarlo::simulate(c));
    // Without the shift, the paths after the redraw would be those of the seed one output later.
    const Config shifted { c.trades, c.horizon, c.paths, 0, -10.0, seed + SeededRNG::gamma };
    EXPECT_NE(fast->finalEquities, MonteCarloEngine::simulate(shifted)->finalEquities);
}

TEST(MonteCarloEngine, SeedZeroIsReplacedAndGuardsGiveNothing)
{
    Config zero { sampleTrades(), 20, 300, 0, std::nullopt, 0 };
    Config replacement = zero;
    replacement.seed = MonteCarloEngine::zeroSeedReplacement;
    expectIdentical(*MonteCarloEngine::simulate(zero), *MonteCarloEngine::simulate(replacement));

    EXPECT_FALSE(MonteCarloEngine::simulate({ {}, 10, 10, 0, std::nullopt, 1 }));
    EXPECT_FALSE(MonteCarloEngine::simulate({ { 1.0 }, 0, 10, 0, std::nullopt, 1 }));
    EXPECT_FALSE(MonteCarloEngine::simulate({ { 1.0 }, 10, 0, 0, std::nullopt, 1 }));
    // Without a seed it still runs.
    EXPECT_EQ(MonteCarloEngine::simulate({ { 1.0 }, 3, 2, 0, std::nullopt, std::nullopt })->finalEquities,
        (std::vector<double> { 3, 3 }));
}

TEST(MonteCarloEngine, StraightLinesAndTheRuinLine)
{
    // One value repeated: every path is a straight line and every band equal.
    const auto r = MonteCarloEngine::simulate({ { -2.0 }, 5, 50, 10, 10.0, 9 });
    ASSERT_TRUE(r);
    for (size_t s = 0; s < r->bands.size(); ++s) {
        const double at = 10 - 2.0 * static_cast<double>(s);
        EXPECT_EQ(r->bands[s], (Result::Bands { at, at, at, at, at }));
    }
    EXPECT_EQ(r->yRange, (Result::Range { 0, 10 }));
    // A threshold at the start: the start itself is not tested, the first step down is.
    EXPECT_EQ(r->ruinProbability, 1.0);
    EXPECT_EQ(MonteCarloEngine::simulate({ { 2.0 }, 5, 50, 10, 10.0, 9 })->ruinProbability, 0.0);
    // A dip to the line that recovers is a ruin all the same: with a first step of -1 in half the
    // paths and a strong upward drift, every path ends far above the line, yet about half are ruined.
    const auto dips = MonteCarloEngine::simulate({ { -1.0, 3.0 }, 200, 400, 0, -1.0, 5 });
    EXPECT_GT(dips->finalEquities.front(), 50);
    EXPECT_GT(*dips->ruinProbability, 0.4);

    EXPECT_EQ(MonteCarloEngine::percentile({}, 0.5), 0);
    EXPECT_EQ(MonteCarloEngine::percentile(std::vector<double> { 7 }, 0.95), 7);
    EXPECT_EQ(MonteCarloEngine::percentile(std::vector<double> { 0, 10, 20, 30, 40 }, 0.05), 2.0);
}

// Simulation limits: a run is bounded, and a run asked to stop ends with nothing.
TEST(MonteCarloEngine, RunsBeyondTheDrawLimitAndStoppedRunsGiveNothing)
{
    // The largest run the command line once took: 10^11 draws, half an hour here.
    EXPECT_FALSE(MonteCarloEngine::simulate({ sampleTrades(), 100'000, 1'000'000, 0, std::nullopt, 1 }));
    EXPECT_FALSE(MonteCarloEngine::simulate(
        { sampleTrades(), 1000, MonteCarloEngine::maxDraws / 1000 + 1, 0, std::nullopt, 1 }));

    std::stop_source before;
    before.request_stop();
    Config small { sampleTrades(), 50, 200, 0, std::nullopt, 1 };
    small.stop = before.get_token();
    EXPECT_FALSE(MonteCarloEngine::simulate(small));

    // A run at the limit, stopped from another thread while it goes: it would take seconds here.
    std::stop_source during;
    Config large { sampleTrades(), 1000, MonteCarloEngine::maxDraws / 1000, 0, -50.0, 3 };
    large.stop = during.get_token();
    std::optional<Result> result = Result {};
    std::thread run([&] { result = MonteCarloEngine::simulate(large); });
    during.request_stop();
    run.join();
    EXPECT_FALSE(result);
}

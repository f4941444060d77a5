#pragma once

#include <cstdint>

// SplitMix64 with its published constants: the generator behind a seeded simulation, so that a seed
// gives the same fan, bit for bit, on every machine. All arithmetic wraps modulo 2^64.
struct SeededRNG {
    static constexpr uint64_t gamma = 0x9E3779B97F4A7C15ULL;

    uint64_t state;

    // The output for a given state after the increment; next() is mix(state += gamma). Being a
    // function of the state alone, the k-th output of a seed is mix(seed + k * gamma), which is what
    // lets a simulation draw in any order and still reproduce the sequential stream.
    static constexpr uint64_t mix(uint64_t z)
    {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }

    uint64_t next()
    {
        state += gamma;
        return mix(state);
    }

    // A uniform index in [0, bound), bound > 0, by Lemire's multiply-and-reject: the high word of
    // r × bound, redrawing r while the low word falls below 2^64 mod bound. Exactly this method and
    // no other, as the fan of a seed depends on every draw.
    uint64_t next(uint64_t bound);
};

#include "journal/SeededRNG.h"

uint64_t SeededRNG::next(uint64_t bound)
{
    __extension__ typedef unsigned __int128 UInt128;
    UInt128 product = static_cast<UInt128>(next()) * bound;
    auto low = static_cast<uint64_t>(product);
    if (low < bound) {
        const uint64_t threshold = (0 - bound) % bound;
        while (low < threshold) {
            product = static_cast<UInt128>(next()) * bound;
            low = static_cast<uint64_t>(product);
        }
    }
    return static_cast<uint64_t>(product >> 64);
}

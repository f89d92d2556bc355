#pragma once

#include <cstdint>

/// Mixes a counter into a well-spread 64-bit number (Steele, Lea, Flood: Fast splittable pseudorandom number
/// generators, 2014). The same number on every platform, which standard distributions don't promise.
constexpr uint64_t splitMix64(uint64_t counter)
{
    uint64_t z = counter * 0x9E3779B97F4A7C15ULL;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

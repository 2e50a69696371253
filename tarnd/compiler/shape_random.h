// The generator behind the shapes of random search trees.
//
// xorshift64* (S. Vigna, "An experimental exploration of Marsaglia's xorshift generators, scrambled", 2016).
// Only balance hangs on it: no result depends on a shape, so it is seeded with a constant.
#pragma once

#include <cstdint>

struct t_shape_random {
    uint64_t state = 0x9e3779b97f4a7c15;
};

// A value below bound (1 or more), uniform up to a bias of bound / 2^32.
inline uint32_t shape_random_below(t_shape_random *p_random, uint32_t bound)
{
    uint64_t x = p_random->state;
    x ^= x >> 12;
    x ^= x << 25;
    x ^= x >> 27;
    p_random->state = x;
    uint64_t draw = x * 0x2545f4914f6cdd1d >> 32;
    return static_cast<uint32_t>(draw * bound >> 32);
}

// Numbers in use, as a string of bits: the lowest bit of the first byte is number 0.
#pragma once

#include "tarnd/core/tarn.h"

// The lowest position among `size` bits whose bit has the value, or -1. A byte full of set bits is passed
// over as a whole, whichever value is looked for.
inline int bit_check(const bitstr_t *bitstr, int size, int value)
{
    for (int i = 0; i < size; i++) {
        if (bitstr[i / 8] == 0xff)
            i |= 7;
        else if ((bitstr[i / 8] >> i % 8 & 1) == value)
            return i;
    }
    return -1;
}

inline void bit_set(bitstr_t *bitstr, int position)
{
    bitstr[position / 8] = static_cast<bitstr_t>(bitstr[position / 8] | 1u << position % 8);
}

inline void bit_clear(bitstr_t *bitstr, int position)
{
    bitstr[position / 8] = static_cast<bitstr_t>(bitstr[position / 8] & ~(1u << position % 8));
}

// A range of 32-bit field values.
#pragma once

#include <cstdint>

// In rules both bounds are inclusive, and i_next links the alternatives of a field. In lookup tables the
// interval is half-open: i_max is the first value that no longer belongs to it.
struct t_interval {
    uint32_t i_min;
    uint32_t i_max;
    t_interval *i_next;
};

// Key of a lookup table as the search trees order it: a half-open interval and its class.
struct t_ival_ec_entry {
    t_interval e_interval;
    uint32_t e_ec;
};

// The inclusive reading: i_min <= value <= i_max.
bool value_is_within_interval(const t_interval *p_interval, uint32_t value);

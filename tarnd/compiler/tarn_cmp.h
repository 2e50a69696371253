// Comparators of the compiler's search trees. Each returns a negative value, 0 or a positive value.
#pragma once

// On the first uint32_t of each key.
int uint32s_cmp(void *p_a, void *p_b);

// On two t_epi, numerically.
int bitvectors_cmp(void *p_a, void *p_b);

// On the lower bounds of two intervals (t_interval, or a record that begins with one).
int intervals_cmp(void *p_a, void *p_b);

// Orders two t_interval by width, then by lower bound.
int overlap_intervals_cmp(void *p_a, void *p_b);

// Where a uint32_t value lies against a half-open interval: -1 below, 1 at or above i_max, 0 inside. This is
// the definition of a lookup in a compiled table.
int intervals_within(void *p_value, void *p_interval);

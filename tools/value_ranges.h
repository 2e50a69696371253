// Sets of 32-bit values as lists of closed ranges.
//
// A list is normal when its ranges ascend and neither overlap nor touch, so that equal sets have equal lists.
// The set operations take normal lists and give normal lists; ranges_normalise makes one of any list.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Both bounds belong to the range; low <= high.
struct t_value_range {
    uint32_t low;
    uint32_t high;
    bool operator==(const t_value_range &) const = default;
};

using t_value_ranges = std::vector<t_value_range>;

// Sorts, and joins what overlaps or touches.
void ranges_normalise(t_value_ranges *p_ranges);

// Any list: whether one of its ranges holds the value.
bool ranges_hold(std::span<const t_value_range> ranges, uint32_t value);

// Normal lists from here on.
bool ranges_contain(std::span<const t_value_range> outer, std::span<const t_value_range> inner);
bool ranges_intersect(std::span<const t_value_range> a, std::span<const t_value_range> b);
t_value_ranges ranges_intersection(std::span<const t_value_range> a, std::span<const t_value_range> b);
t_value_ranges ranges_difference(std::span<const t_value_range> a, std::span<const t_value_range> b);

// Number of values in the set, up to 2^32.
uint64_t ranges_count(std::span<const t_value_range> ranges);

// The value at a position counted from 0 in ascending order; index is below ranges_count.
uint32_t ranges_value_at(std::span<const t_value_range> ranges, uint64_t index);

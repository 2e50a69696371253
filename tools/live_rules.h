// The rules that are alive so far, found by where they may meet another.
//
// Most rules name few addresses, so a rule is filed under the smallest block of 8, 16, 24 or 32 leading bits
// that holds its bounds in a dimension. A rule that asks for its neighbours looks at the blocks around it
// and, if it is no wider than a 24-bit block, at those inside; a wider one looks at everything. This keeps
// large sets from costing the square of their size.
#pragma once

#include "tools/value_ranges.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

struct t_live_rules {
    std::vector<uint32_t> all;  // ascending
    // By dimension: number of leading bits and the bits themselves, to rules.
    std::vector<std::unordered_map<uint64_t, std::vector<uint32_t>>> blocks;
};

// Files a rule, whose index is above those of all before, by its bounds; one range a dimension.
void live_rules_add(t_live_rules *p_live, uint32_t rule, std::span<const t_value_range> bounds);

// Rules that may meet the bounds, ascending: all that do and some that do not.
std::vector<uint32_t> live_rules_near(const t_live_rules &live, std::span<const t_value_range> bounds);

// Sets of packets as boxes, and the question whether some of them cover another.
//
// A box holds one normal list of ranges for each dimension, so a rule with lists of alternatives is one box.
// The question is decided exactly, by subtraction: what a covering box leaves of the target falls apart into
// at most one smaller box a dimension, and each is asked again with the boxes that still meet it. The
// problem is hard in general; rule sets are kind to it, and a budget bounds the rest.
#pragma once

#include "tools/value_ranges.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

using t_box = std::vector<t_value_ranges>;  // one list a dimension

bool box_is_empty(const t_box &box);
bool box_intersects(const t_box &a, const t_box &b);
bool box_contains(const t_box &outer, const t_box &inner);

enum class e_cover { covered, uncovered, undecided };

struct t_cover_answer {
    e_cover state;
    std::vector<uint32_t> used;  // covered: indices of boxes that together suffice, ascending
};

// Whether the boxes together contain the target, which is not empty. *p_budget counts steps down; at 0 the
// answer is undecided.
t_cover_answer box_cover(const t_box &target, std::span<const t_box *const> boxes, uint64_t *p_budget);

// A cover of which none can be left out, made of a cover by dropping, the smallest boxes first, what the
// others do not need. Undecided cases count as needed. Indices into boxes, ascending.
std::vector<uint32_t> box_cover_prune(const t_box &target, std::span<const t_box *const> boxes,
                                      std::vector<uint32_t> cover, uint64_t *p_budget);
